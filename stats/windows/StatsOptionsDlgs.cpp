#include "StatsOptionsDlgs.h"

#include "Global2Widgets.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QDialogButtonBox>
#include <QFontDialog>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {

QLineEdit* readOnlyField(QWidget* parent, const QString& name) {
    auto* edit = new QLineEdit(parent);
    edit->setObjectName(name);
    edit->setReadOnly(true);
    return edit;
}

QFrame* swatch(QWidget* parent, const QString& name) {
    auto* frame = new QFrame(parent);
    frame->setObjectName(name);
    frame->setFrameShape(QFrame::Panel);
    frame->setFrameShadow(QFrame::Sunken);
    frame->setMinimumSize(40, 20);
    return frame;
}

} // namespace

TStatsOptionsDlg::TStatsOptionsDlg(QWidget* owner, QString iniPath)
    : QDialog(owner), m_ini(std::move(iniPath)) {
    setObjectName(QStringLiteral("TStatsOptionsDlg"));
    setWindowTitle(QStringLiteral("Velkin Stats Options"));
    chooseColor = [this](const QColor& current) -> std::optional<QColor> {
        const QColor chosen = QColorDialog::getColor(current, this);
        return chosen.isValid() ? std::optional<QColor>(chosen) : std::nullopt;
    };
    chooseFont = [this](const QFont& current) -> std::optional<QFont> {
        bool ok = false;
        const QFont chosen = QFontDialog::getFont(&ok, current, this);
        return ok ? std::optional<QFont>(chosen) : std::nullopt;
    };

    m_tabs = new QTabWidget(this);
    m_tabs->setObjectName(QStringLiteral("PageControl"));
    m_tabs->addTab(makeGeneralTab(), QStringLiteral("General"));
    m_tabs->addTab(makeFontsTab(), QStringLiteral("Fonts"));
    m_tabs->addTab(makeUpdatesTab(), QStringLiteral("Updates"));
    m_tabs->setCurrentIndex(0);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setObjectName(QStringLiteral("OkBtn"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("CancelBtn"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    layout->addWidget(buttons);
    load();
}

QWidget* TStatsOptionsDlg::makeGeneralTab() {
    auto* tab = new QWidget;
    auto* grid = new QGridLayout(tab);
    grid->addWidget(new QLabel(QStringLiteral("Window color:"), tab), 0, 0);
    m_colorSwatch = swatch(tab, QStringLiteral("ColorPanel"));
    grid->addWidget(m_colorSwatch, 0, 1);
    auto* colorBtn = new QPushButton(QStringLiteral("..."), tab);
    colorBtn->setObjectName(QStringLiteral("ColorBtn"));
    connect(colorBtn, &QPushButton::clicked, this, &TStatsOptionsDlg::ColorBtnClick);
    grid->addWidget(colorBtn, 0, 2);

    auto* timeoutLabel = new QLabel(QStringLiteral("Time out:"), tab);
    m_timeout = new QSpinBox(tab);
    m_timeout->setObjectName(QStringLiteral("TimeoutEdit"));
    m_timeout->setRange(0, 1000);
    timeoutLabel->setBuddy(m_timeout);
    grid->addWidget(timeoutLabel, 1, 0);
    grid->addWidget(m_timeout, 1, 1);
    grid->addWidget(new QLabel(QStringLiteral("Seconds"), tab), 1, 2);

    // Kept and saved, but not offered in this version.
    m_autoLoad = new QCheckBox(QStringLiteral("Auto-load local files at startup"), tab);
    m_autoLoad->setObjectName(QStringLiteral("AutoLoadBox"));
    m_centered = new QRadioButton(QStringLiteral("Screen &Center"), tab);
    m_centered->setObjectName(QStringLiteral("CenterBtn"));
    m_remember = new QRadioButton(QStringLiteral("&Remember Last"), tab);
    m_remember->setObjectName(QStringLiteral("RememberBtn"));
    for (QWidget* hidden : {static_cast<QWidget*>(m_autoLoad), static_cast<QWidget*>(m_centered),
                            static_cast<QWidget*>(m_remember)})
        hidden->hide();
    grid->setRowStretch(2, 1);
    return tab;
}

QWidget* TStatsOptionsDlg::makeFontGroup(const QString& title, const QString& name,
                                         FontGroup& group) {
    auto* box = new QGroupBox(title);
    box->setObjectName(name);
    auto* row = new QHBoxLayout(box);
    group.name = readOnlyField(box, name + QStringLiteral("Name"));
    group.size = readOnlyField(box, name + QStringLiteral("Size"));
    group.style = readOnlyField(box, name + QStringLiteral("Style"));
    group.color = swatch(box, name + QStringLiteral("Color"));
    group.size->setMaximumWidth(50);
    group.style->setMaximumWidth(50);
    auto* button = new QPushButton(QStringLiteral("..."), box);
    button->setObjectName(name + QStringLiteral("Btn"));
    connect(button, &QPushButton::clicked, this, [this, &group] { chooseGroupFont(group); });
    row->addWidget(group.name, 1);
    row->addWidget(group.size);
    row->addWidget(group.style);
    row->addWidget(group.color);
    row->addWidget(button);
    return box;
}

QWidget* TStatsOptionsDlg::makeFontsTab() {
    auto* tab = new QWidget;
    auto* column = new QVBoxLayout(tab);
    column->addWidget(
        makeFontGroup(QStringLiteral("Dialog Font"), QStringLiteral("DialogFont"), m_dialogFont));
    column->addWidget(
        makeFontGroup(QStringLiteral("Window Font"), QStringLiteral("WindowFont"), m_windowFont));
    column->addWidget(
        makeFontGroup(QStringLiteral("Editor Font"), QStringLiteral("EditorFont"), m_editorFont));
    column->addStretch(1);
    return tab;
}

QWidget* TStatsOptionsDlg::makeUpdatesTab() {
    auto* tab = new QWidget;
    auto* column = new QVBoxLayout(tab);
    m_barNew = new QCheckBox(QStringLiteral("Auto-bar new remailers"), tab);
    m_barNew->setObjectName(QStringLiteral("BarNewBox"));
    m_noStaleSave = new QCheckBox(QStringLiteral("Do not save stale pages"), tab);
    m_noStaleSave->setObjectName(QStringLiteral("NoStaleSaveBox"));
    m_cascade =
        new QCheckBox(QStringLiteral("Cascade to next source when primary source fails"), tab);
    m_cascade->setObjectName(QStringLiteral("CascadeBox"));
    connect(m_cascade, &QCheckBox::clicked, this, &TStatsOptionsDlg::CascadeBoxClick);
    m_statsOnly = new QCheckBox(QStringLiteral("Only get stats on cascade (no keys)"), tab);
    m_statsOnly->setObjectName(QStringLiteral("StatsOnlyBox"));
    m_statsOnly->hide();
    // Neither loaded nor saved: a choice this version does not make.
    m_dailyPubring =
        new QCheckBox(QStringLiteral("Update pubring.mix on the first update of each day"), tab);
    m_dailyPubring->setObjectName(QStringLiteral("DailyPubringBox"));
    m_dailyPubring->hide();
    column->addWidget(m_barNew);
    column->addWidget(m_noStaleSave);
    column->addWidget(m_cascade);
    column->addWidget(m_statsOnly);
    column->addWidget(m_dailyPubring);
    column->addStretch(1);
    return tab;
}

void TStatsOptionsDlg::load() {
    const StatsOptions o = LoadStatsOptions(m_ini);
    m_autoLoad->setChecked(o.autoLoad);
    m_centered->setChecked(o.windowCentered);
    m_remember->setChecked(!o.windowCentered);
    m_barNew->setChecked(o.barNew);
    m_noStaleSave->setChecked(o.noStaleSave);
    m_statsOnly->setChecked(o.cascadeStatsOnly);
    m_cascade->setChecked(o.cascade);
    m_color = o.windowColor;
    SetPanelColor(m_colorSwatch, ToQColor(m_color));
    m_windowFont.fontString = o.windowFont;
    m_dialogFont.fontString = o.dialogFont;
    m_editorFont.fontString = o.editorFont;
    for (FontGroup* group : {&m_dialogFont, &m_windowFont, &m_editorFont})
        ShowFontFields(group->fontString, group->name, group->size, group->style, group->color);
    m_timeout->setValue(o.timeoutSeconds);
}

StatsOptions TStatsOptionsDlg::options() const {
    StatsOptions o;
    o.autoLoad = m_autoLoad->isChecked();
    o.windowCentered = m_centered->isChecked();
    o.barNew = m_barNew->isChecked();
    o.noStaleSave = m_noStaleSave->isChecked();
    o.cascadeStatsOnly = m_statsOnly->isChecked();
    o.cascade = m_cascade->isChecked();
    o.windowColor = m_color;
    o.windowFont = m_windowFont.fontString;
    o.dialogFont = m_dialogFont.fontString;
    o.editorFont = m_editorFont.fontString;
    o.timeoutSeconds = TimeoutFromText(m_timeout->cleanText());
    return o;
}

void TStatsOptionsDlg::done(int result) {
    // Saved whichever way the dialog closes.
    SaveStatsOptions(m_ini, options());
    QDialog::done(result);
}

void TStatsOptionsDlg::ColorBtnClick() {
    if (const auto chosen = chooseColor(ToQColor(m_color))) {
        m_color = FromQColor(*chosen);
        SetPanelColor(m_colorSwatch, *chosen);
    }
}

void TStatsOptionsDlg::CascadeBoxClick() {
    m_statsOnly->setEnabled(m_cascade->isChecked());
    if (!m_cascade->isChecked())
        m_statsOnly->setChecked(false);
}

void TStatsOptionsDlg::chooseGroupFont(FontGroup& group) {
    const FontSpec current = StringToFont(group.fontString);
    if (const auto chosen = chooseFont(ToQFont(current))) {
        group.fontString = FontToString(FromQFont(*chosen, current.color));
        ShowFontFields(group.fontString, group.name, group.size, group.style, group.color);
    }
}

StatsOptionsResult ShowStatsOptions(QWidget* owner) {
    TStatsOptionsDlg dialog(owner, IniFileName());
    dialog.exec();
    const StatsOptions o = dialog.options();
    return {o.barNew, o.noStaleSave, o.windowColor, o.windowFont, o.dialogFont, o.editorFont};
}
