#pragma once

#include "StatsController.h"
#include "WidgetFrontEnd.h"

#include <QMainWindow>
#include <QTimer>

class QAction;
class QComboBox;
class QFrame;
class QLabel;
class QMenu;
class QPlainTextEdit;
class QProgressBar;
class QStackedWidget;
class QTabBar;
class QToolBar;
class QToolButton;

// The main window: the tabbed page viewer and the program's commands. The
// work itself is the controller's; the handlers only pass it on.
class TVKStatsWin4 : public QMainWindow, public WidgetFrontEnd {
    Q_OBJECT
public:
    explicit TVKStatsWin4(StatsController::Broadcast broadcast = {}, QWidget* parent = nullptr);
    ~TVKStatsWin4() override;

    // Start-up: checks, command line and settings. False when the window is
    // not to be shown and the program should end.
    StartResult start(const QStringList& arguments);
    // Whether the window should be shown after start (an unattended hidden
    // run stays invisible).
    bool showAtStart() const { return m_showAtStart; }

    StatsController& controller() { return m_controller; }

    // The front end.
    void setStatusText(const QString& text) override { SetStatusText(text); }
    void setProgress(int percent) override;
    void bringToFront() override;
    void setMainVisible(bool visible) override;
    bool askAddKeys(const QString& caption, std::array<bool, 4>& ticks) override;

    void SetStatusText(const QString& text);
    bool ShowPageTab(const QString& name);
    void OpenPageIfClosed(const QString& name);
    bool AskSavePages();
    QPlainTextEdit* ViewerOfTab(int tab) const;

    // The suite's message: 1 closes, 2 re-checks the proxies.
    void suiteMessage(int code, int value);

    // Handlers, named after their controls.
    void FileUpdateItemClick();
    void FileUpdateSelectItemClick();
    void FileExitClick();
    void ViewMenuItemClick(QAction* item);
    void FileMenuClick();
    void KeyringsMenuClick();
    void SpeedButton1Click();
    void RunBtnClick();
    void CancelBtnClick();
    void OkBtnClick();
    void UpdateSaveItemClick();
    void UpdatePrintItemClick();
    void About1Click();
    void UpdateCloseAllItemClick();
    void SourceBoxChange(int index);
    void ProxyBoxChange(int index);
    void TabSetChange(int index);
    void ToolsURLManagerItemClick();
    void ToolsProxyItemClick();
    void ToolsBarRemailerItemClick();
    void RearrangeURLsourcesClick();
    void Options1Click();
    void HelpTopicsClick();
    void HelpHistoryItemClick();
    void Timer2Timer();
    void Timer3Timer();
    void Timer4Timer();
    void Timer5Timer();

    QTimer Timer1;
    QTimer Timer2;
    QTimer Timer3;
    QTimer Timer4;
    QTimer Timer5;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void createControls();
    void createToolBar();
    void createMenus();
    QMenu* addMenu(const QString& caption, const char* name);
    QAction* addItem(QMenu* menu, const QString& caption, const char* name);
    void applySettings();
    void applyLook();
    void fillSourceBox();
    void fillProxyBox();
    void rebuildChoiceMenu(QMenu* menu, QComboBox* box);
    void pageAdded(int index);
    void pagesCleared();
    void runStarted();
    void runFinished();
    void setBusy(bool busy);
    QString windowRecord() const;
    QPlainTextEdit* makeView(int index);

    StatsController m_controller;
    bool m_showAtStart = true;
    QString m_statusText;
    bool m_blinkOn = true;

public:
    // Controls, named by role as the suite's other programs expect them.
    QToolBar* ToolBar = nullptr;
    QToolButton* OkBtn = nullptr;
    QToolButton* RunBtn = nullptr;
    QToolButton* CancelBtn = nullptr;
    QToolButton* SaveBtn = nullptr;
    QToolButton* PrintBtn = nullptr;
    QToolButton* KeyringBtn = nullptr;
    QAction* OkBtnAction = nullptr;
    QAction* OkSepAction = nullptr;
    QAction* KeyringBtnAction = nullptr;
    QAction* KeyringSep = nullptr;
    QFrame* Panel3 = nullptr;
    QLabel* Label1 = nullptr;
    QProgressBar* ProgressBar = nullptr;
    QComboBox* SourceBox = nullptr;
    QComboBox* ProxyBox = nullptr;
    QTabBar* TabSet = nullptr;
    QStackedWidget* Pages = nullptr;
    QPlainTextEdit* BlankView = nullptr;
    QMenu* FileMenu = nullptr;
    QMenu* SourceMenu = nullptr;
    QMenu* ProxyMenu = nullptr;
    QMenu* ViewMenu = nullptr;
    QMenu* KeyringsMenu = nullptr;
    QMenu* PagesMenu = nullptr;
    QMenu* ToolsMenu = nullptr;
    QMenu* HelpMenu = nullptr;
    QMenu* PopupMenu1 = nullptr;
    QMenu* PopupMenu3 = nullptr;
    QAction* ToolsProxyItem = nullptr;
};
