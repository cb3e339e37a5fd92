#pragma once

#include "StatsSettings.h"

#include <QDialog>

#include <functional>
#include <optional>

class QCheckBox;
class QFrame;
class QLineEdit;
class QRadioButton;
class QSpinBox;
class QTabWidget;

// "Velkin Stats Options": window colour, time-out, fonts and update
// behaviour. It saves on every close, Cancel included, as the suite does.
class TStatsOptionsDlg : public QDialog {
    Q_OBJECT
public:
    TStatsOptionsDlg(QWidget* owner, QString iniPath);

    // The colour and font pickers; tests replace them to answer without a
    // modal dialog. An empty result means the user cancelled.
    std::function<std::optional<QColor>(const QColor&)> chooseColor;
    std::function<std::optional<QFont>(const QFont&)> chooseFont;

    StatsOptions options() const;
    void done(int result) override;

private slots:
    void ColorBtnClick();
    void CascadeBoxClick();

private:
    struct FontGroup {
        QString fontString;
        QLineEdit* name = nullptr;
        QLineEdit* size = nullptr;
        QLineEdit* style = nullptr;
        QFrame* color = nullptr;
    };
    QWidget* makeGeneralTab();
    QWidget* makeFontsTab();
    QWidget* makeUpdatesTab();
    QWidget* makeFontGroup(const QString& title, const QString& name, FontGroup& group);
    void chooseGroupFont(FontGroup& group);
    void load();

    IniFile m_ini;
    qint64 m_color = SystemWindowColor;
    QTabWidget* m_tabs = nullptr;
    QFrame* m_colorSwatch = nullptr;
    QSpinBox* m_timeout = nullptr;
    QCheckBox* m_autoLoad = nullptr;
    QRadioButton* m_centered = nullptr;
    QRadioButton* m_remember = nullptr;
    QCheckBox* m_barNew = nullptr;
    QCheckBox* m_noStaleSave = nullptr;
    QCheckBox* m_cascade = nullptr;
    QCheckBox* m_statsOnly = nullptr;
    QCheckBox* m_dailyPubring = nullptr;
    FontGroup m_dialogFont;
    FontGroup m_windowFont;
    FontGroup m_editorFont;
};

// What the main window takes back from the dialog.
struct StatsOptionsResult {
    bool barNew = false;
    bool noStaleSave = false;
    qint64 windowColor = SystemWindowColor;
    QString windowFont;
    QString dialogFont;
    QString editorFont;
};
StatsOptionsResult ShowStatsOptions(QWidget* owner);
