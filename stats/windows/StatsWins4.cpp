#include "StatsWins4.h"

#include "AboutDlgs2.h"
#include "BarRemsDlgs2.h"
#include "ChkAddKeysDlgs.h"
#include "Global2Widgets.h"
#include "HistoryWins.h"
#include "IniFile.h"
#include "KeyringUpdate.h"
#include "NewMixKeyWins.h"
#include "NewMixKeys.h"
#include "PagePaths.h"
#include "PrntSelPagesDlgs.h"
#include "RearrangeDlgs.h"
#include "StatsOptionsDlgs.h"
#include "URLDlgs.h"
#include "UpdateSelectDlgs.h"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QKeySequence>
#include <QLabel>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QScreen>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStatusTipEvent>
#include <QStyle>
#include <QTabBar>
#include <QToolBar>
#include <QToolButton>
#include <QUrl>

#include <algorithm>

namespace {

const char* const MixmasterPages[] = {"mlist.txt", "pubring.mix", "type2.list", "rlist.txt",
                                      "pubring.asc"};

// A tool-button hint holds a short and a long text separated by "|"; the
// long one goes to the status bar.
void SetHint(QToolButton* button, const QString& hint) {
    button->setToolTip(hint.section(u'|', 0, 0).trimmed());
    button->setStatusTip(hint.section(u'|', 1).trimmed());
}

// A place saved on a larger or another monitor must not leave the window
// out of reach: shrink it to the screen it would be on, then move it inside.
QRect OnScreen(const QRect& saved) {
    const QScreen* screen = QGuiApplication::screenAt(saved.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return saved;
    const QRect area = screen->availableGeometry();
    QRect rect(saved.topLeft(), saved.size().boundedTo(area.size()));
    rect.moveLeft(std::clamp(rect.left(), area.left(), area.right() + 1 - rect.width()));
    rect.moveTop(std::clamp(rect.top(), area.top(), area.bottom() + 1 - rect.height()));
    return rect;
}

QString PingerSiteUrl(const char* key, const char* path) {
    return IniFile(IniFileName())
        .readString(QStringLiteral("pingersite"), QString::fromLatin1(key),
                    QStringLiteral("http://echolot.theremailer.net") + QString::fromLatin1(path));
}

} // namespace

TVKStatsWin4::TVKStatsWin4(StatsController::Broadcast broadcast, QWidget* parent)
    : QMainWindow(parent), WidgetFrontEnd(this), m_controller(this, std::move(broadcast)) {
    setObjectName(QStringLiteral("TVKStatsWin4"));
    setWindowTitle(QStringLiteral("Velkin Stats Manager"));
    setWindowIcon(
        QIcon::fromTheme(QStringLiteral("vkstats"), QIcon(QStringLiteral(":/icons/vkstats.svg"))));
    resize(686, 516);
    setMinimumWidth(540);
    createControls();
    createToolBar();
    createMenus();

    Timer1.setInterval(500);
    Timer2.setInterval(10);
    Timer3.setInterval(1000);
    Timer4.setInterval(500);
    Timer5.setInterval(200);
    connect(&Timer2, &QTimer::timeout, this, &TVKStatsWin4::Timer2Timer);
    connect(&Timer3, &QTimer::timeout, this, &TVKStatsWin4::Timer3Timer);
    connect(&Timer4, &QTimer::timeout, this, &TVKStatsWin4::Timer4Timer);
    connect(&Timer5, &QTimer::timeout, this, &TVKStatsWin4::Timer5Timer);

    PageSet& pages = m_controller.pages();
    connect(&pages, &PageSet::pageAdded, this, &TVKStatsWin4::pageAdded);
    connect(&pages, &PageSet::pagesCleared, this, &TVKStatsWin4::pagesCleared);
    connect(&pages, &PageSet::currentChanged, this, [this](int index) {
        TabSet->setCurrentIndex(index);
        Pages->setCurrentIndex(index);
    });
    UpdateEngine& engine = m_controller.engine();
    connect(&engine, &UpdateEngine::runStarted, this, &TVKStatsWin4::runStarted);
    connect(&engine, &UpdateEngine::runFinished, this, &TVKStatsWin4::runFinished);
    connect(&m_controller, &StatsController::saveEnabledChanged, SaveBtn, &QWidget::setEnabled);
    connect(&m_controller, &StatsController::sourcesChanged, this, &TVKStatsWin4::fillSourceBox);
}

TVKStatsWin4::~TVKStatsWin4() = default;

void TVKStatsWin4::createControls() {
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(2, 2, 2, 2);
    auto* row = new QHBoxLayout;

    Panel3 = new QFrame(central);
    Panel3->setObjectName(QStringLiteral("Panel3"));
    Panel3->setAutoFillBackground(true);
    Panel3->setStyleSheet(QStringLiteral("#Panel3 { background: white; }"));
    auto* panelLayout = new QHBoxLayout(Panel3);
    panelLayout->setContentsMargins(4, 0, 4, 0);
    Label1 = new QLabel(QStringLiteral("Loading..."), Panel3);
    Label1->setObjectName(QStringLiteral("Label1"));
    Label1->setStyleSheet(QStringLiteral("color: blue;"));
    panelLayout->addWidget(Label1);
    Panel3->hide();
    row->addWidget(Panel3, 1);

    ProgressBar = new QProgressBar(central);
    ProgressBar->setObjectName(QStringLiteral("ProgressBar"));
    ProgressBar->setRange(0, 100);
    ProgressBar->hide();
    row->addWidget(ProgressBar, 1);
    row->addStretch();

    auto addBox = [&](const QString& label, const char* name) {
        auto* box = new QComboBox(central);
        box->setObjectName(QString::fromLatin1(name));
        box->setMaxVisibleItems(16);
        box->setMinimumContentsLength(12);
        box->addItem(ProxySelection::noneEntry());
        auto* caption = new QLabel(label, central);
        caption->setObjectName(QStringLiteral("BoxCaption"));
        caption->setBuddy(box);
        row->addWidget(caption);
        row->addWidget(box);
        return box;
    };
    SourceBox = addBox(QStringLiteral("&Source"), "SourceBox");
    // Alt+P belongs to the Pages menu.
    ProxyBox = addBox(QStringLiteral("Pro&xy"), "ProxyBox");
    connect(SourceBox, &QComboBox::activated, this, &TVKStatsWin4::SourceBoxChange);
    connect(ProxyBox, &QComboBox::activated, this, &TVKStatsWin4::ProxyBoxChange);
    layout->addLayout(row);

    TabSet = new QTabBar(central);
    TabSet->setObjectName(QStringLiteral("TabSet"));
    TabSet->setExpanding(false);
    TabSet->setStyleSheet(QStringLiteral("QTabBar::tab { min-width: 92px; }"));
    connect(TabSet, &QTabBar::currentChanged, this, &TVKStatsWin4::TabSetChange);
    layout->addWidget(TabSet);
    Pages = new QStackedWidget(central);
    Pages->setObjectName(QStringLiteral("Pages"));
    layout->addWidget(Pages, 1);
    BlankView = new QPlainTextEdit(central);
    BlankView->setObjectName(QStringLiteral("BlankView"));
    BlankView->setReadOnly(true);
    BlankView->hide();
    setCentralWidget(central);
    statusBar()->setObjectName(QStringLiteral("StatusBar"));
}

void TVKStatsWin4::createToolBar() {
    ToolBar = addToolBar(QStringLiteral("Toolbar"));
    ToolBar->setObjectName(QStringLiteral("ToolBar"));
    ToolBar->setMovable(false);
    auto add = [this](const char* name, const QString& text, QStyle::StandardPixmap icon,
                      const QString& hint) {
        auto* button = new QToolButton(ToolBar);
        button->setObjectName(QString::fromLatin1(name));
        button->setText(text);
        button->setIcon(style()->standardIcon(icon));
        button->setMinimumSize(38, 30);
        button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        if (!hint.isEmpty())
            SetHint(button, hint);
        return button;
    };
    OkBtn = add("OkBtn", QStringLiteral("Save && Exit"), QStyle::SP_DialogApplyButton,
                QStringLiteral("Save & Exit|Save new pages and exit program"));
    RunBtn = add("RunBtn", QStringLiteral("Update"), QStyle::SP_BrowserReload,
                 QStringLiteral("Update | Update selected pages"));
    CancelBtn = add("CancelBtn", QStringLiteral("Stop"), QStyle::SP_BrowserStop,
                    QStringLiteral("Stop | Stop process"));
    SaveBtn = add("SaveBtn", QStringLiteral("Save"), QStyle::SP_DialogSaveButton,
                  QStringLiteral("Save| Save pages"));
    PrintBtn = add("PrintBtn", QStringLiteral("Print"), QStyle::SP_FileDialogDetailedView,
                   QStringLiteral("Print...| Print pages..."));
    PrintBtn->setIcon(QIcon::fromTheme(QStringLiteral("document-print"),
                                       QIcon(QStringLiteral(":/icons/document-print.svg"))));
    KeyringBtn = add("KeyringBtn", QStringLiteral("Keys"), QStyle::SP_DriveNetIcon, {});

    OkBtnAction = ToolBar->addWidget(OkBtn);
    OkSepAction = ToolBar->addSeparator();
    ToolBar->addWidget(RunBtn);
    ToolBar->addWidget(CancelBtn);
    ToolBar->addWidget(SaveBtn);
    ToolBar->addWidget(PrintBtn);
    KeyringSep = ToolBar->addSeparator();
    KeyringBtnAction = ToolBar->addWidget(KeyringBtn);

    connect(RunBtn, &QToolButton::clicked, this, &TVKStatsWin4::RunBtnClick);
    connect(CancelBtn, &QToolButton::clicked, this, &TVKStatsWin4::CancelBtnClick);
    connect(SaveBtn, &QToolButton::clicked, this, &TVKStatsWin4::UpdateSaveItemClick);
    connect(OkBtn, &QToolButton::clicked, this, &TVKStatsWin4::OkBtnClick);
    CancelBtn->setEnabled(false);
    SaveBtn->setEnabled(false);
    connect(PrintBtn, &QToolButton::clicked, this, &TVKStatsWin4::UpdatePrintItemClick);
    PrintBtn->setEnabled(false); // nothing to print before a page is open
}

QMenu* TVKStatsWin4::addMenu(const QString& caption, const char* name) {
    QMenu* menu = menuBar()->addMenu(caption);
    menu->setObjectName(QString::fromLatin1(name));
    return menu;
}

QAction* TVKStatsWin4::addItem(QMenu* menu, const QString& caption, const char* name) {
    QAction* item = menu->addAction(caption);
    item->setObjectName(QString::fromLatin1(name));
    return item;
}

void TVKStatsWin4::createMenus() {
    FileMenu = addMenu(QStringLiteral("&File"), "FileMenu");
    QAction* update = addItem(FileMenu, QStringLiteral("&Update"), "FileUpdateItem");
    update->setShortcut(QKeySequence::Refresh);
    connect(update, &QAction::triggered, this, &TVKStatsWin4::FileUpdateItemClick);
    connect(addItem(FileMenu, QStringLiteral("Select Up&date..."), "FileUpdateSelectItem"),
            &QAction::triggered, this, &TVKStatsWin4::FileUpdateSelectItemClick);
    FileMenu->addSeparator();
    SourceMenu = FileMenu->addMenu(QStringLiteral("&Source"));
    SourceMenu->setObjectName(QStringLiteral("SourceMenu"));
    ProxyMenu = FileMenu->addMenu(QStringLiteral("&Proxy"));
    ProxyMenu->setObjectName(QStringLiteral("ProxyMenu"));
    FileMenu->addSeparator();
    QAction* exit = addItem(FileMenu, QStringLiteral("E&xit"), "FileExit");
    exit->setShortcut(QKeySequence::Quit);
    connect(exit, &QAction::triggered, this, &TVKStatsWin4::FileExitClick);
    connect(FileMenu, &QMenu::aboutToShow, this, &TVKStatsWin4::FileMenuClick);

    ViewMenu = addMenu(QStringLiteral("&View"), "ViewMenu");
    QAction* toolbar = addItem(ViewMenu, QStringLiteral("&Toolbar"), "ViewToolbarItem");
    toolbar->setCheckable(true);
    connect(toolbar, &QAction::toggled, this, [this](bool on) {
        ToolBar->setVisible(on);
        m_controller.settings().showToolbar = on;
    });
    QAction* status = addItem(ViewMenu, QStringLiteral("&Status Bar"), "ViewStatusBarItem");
    status->setCheckable(true);
    connect(status, &QAction::toggled, this, [this](bool on) {
        statusBar()->setVisible(on);
        m_controller.settings().showStatusBar = on;
    });
    ViewMenu->addSeparator();
    addItem(ViewMenu, QStringLiteral("&All pages"), "ViewAllItem")->setVisible(false);
    ViewMenu->addSeparator()->setVisible(false);
    for (const char* caption :
         {"&mlist.txt", "&pubring.mix", "t&ype2.list", "&rlist.txt", "p&ubring.asc"})
        addItem(ViewMenu, QString::fromLatin1(caption), "ViewPageItem");
    ViewMenu->addSeparator();
    // Alt+U belongs to pubring.asc here.
    for (const char* caption : {"&nymserver.asc", "mail&2news.txt", "&advisory.txt", "ur&ls.txt"})
        addItem(ViewMenu, QString::fromLatin1(caption), "ViewPageItem");
    connect(ViewMenu, &QMenu::triggered, this, &TVKStatsWin4::ViewMenuItemClick);

    KeyringsMenu = addMenu(QStringLiteral("&Keyrings"), "KeyringsMenu");
    auto runTool = [](const QString& command) {
        RunProgram(command, SwShowNormal);
    };
    connect(addItem(KeyringsMenu, QStringLiteral("&Mixmaster"), "KeyringsMixItem"),
            &QAction::triggered, this,
            [runTool] { runTool(MixmasterKeyringCommand(ProgramFolder(), GetMixmasterDir())); });
    connect(addItem(KeyringsMenu, QStringLiteral("&Cypherpunk"), "KeyringsCpkItem"),
            &QAction::triggered, this,
            [runTool] { runTool(CypherpunkKeyringCommand(ProgramFolder(), GetMixmasterDir())); });
    connect(addItem(KeyringsMenu, QStringLiteral("&Nymservers"), "KeyringsNymItem"),
            &QAction::triggered, this, [runTool] {
                runTool(NymserverKeysCommand(ProgramFolder(), GetMixmasterDir(),
                                             PagePath(QStringLiteral("nymserver.asc"))));
            });
    KeyringsMenu->addSeparator();
    connect(addItem(KeyringsMenu, QStringLiteral("New Mixmaster &Keys..."), "KeyringsNewKeysItem"),
            &QAction::triggered, this, &TVKStatsWin4::SpeedButton1Click);
    connect(KeyringsMenu, &QMenu::aboutToShow, this, &TVKStatsWin4::KeyringsMenuClick);
    // The menu offers the New Mixmaster Keys window; the key tools in it
    // are usable only where the suite installed them. The tool-bar button
    // stays hidden.
    KeyringSep->setVisible(false);
    KeyringBtnAction->setVisible(false);

    PagesMenu = addMenu(QStringLiteral("&Pages"), "PagesMenu");
    PagesMenu->menuAction()->setStatusTip(
        QStringLiteral("Select pages for update from session to session"));
    auto tick = [this](const char* caption, bool visible) {
        QAction* item = addItem(PagesMenu, QString::fromLatin1(caption), "PagesTickItem");
        item->setCheckable(true);
        item->setVisible(visible);
        const QString page = StripAmpersand(item->text());
        connect(item, &QAction::toggled, this,
                [this, page](bool on) { m_controller.setTicked(page, on); });
    };
    for (const char* caption : {"&mlist.txt", "&pubring.mix", "&rlist.txt", "p&ubring.asc"})
        tick(caption, true);
    PagesMenu->addSeparator();
    for (const char* caption : {"&nymserver.asc", "mail&2news.txt", "&advisory.txt"})
        tick(caption, true);
    tick("&urls.txt", false);
    PagesMenu->addSeparator();
    connect(addItem(PagesMenu, QStringLiteral("&Close All"), "UpdateCloseAllItem"),
            &QAction::triggered, this, &TVKStatsWin4::UpdateCloseAllItemClick);
    // Alt+R belongs to rlist.txt here.
    QAction* print = addItem(PagesMenu, QStringLiteral("Pr&int..."), "UpdatePrintItem");
    print->setShortcut(QKeySequence::Print);
    connect(print, &QAction::triggered, this, &TVKStatsWin4::UpdatePrintItemClick);
    QAction* save = addItem(PagesMenu, QStringLiteral("&Save"), "UpdateSaveItem");
    save->setShortcut(QKeySequence::Save);
    connect(save, &QAction::triggered, this, &TVKStatsWin4::UpdateSaveItemClick);

    ToolsMenu = addMenu(QStringLiteral("&Tools"), "ToolsMenu");
    connect(addItem(ToolsMenu, QStringLiteral("&URL Manager"), "ToolsURLManagerItem"),
            &QAction::triggered, this, &TVKStatsWin4::ToolsURLManagerItemClick);
    ToolsProxyItem = addItem(ToolsMenu, QStringLiteral("Pro&xy Manager"), "ToolsProxyItem");
    connect(ToolsProxyItem, &QAction::triggered, this, &TVKStatsWin4::ToolsProxyItemClick);
    ToolsMenu->addSeparator();
    connect(addItem(ToolsMenu, QStringLiteral("&Barred Remailers"), "ToolsBarRemailerItem"),
            &QAction::triggered, this, &TVKStatsWin4::ToolsBarRemailerItemClick);
    connect(addItem(ToolsMenu, QStringLiteral("&Re-order Sources"), "RearrangeURLsources"),
            &QAction::triggered, this, &TVKStatsWin4::RearrangeURLsourcesClick);
    ToolsMenu->addSeparator();
    connect(addItem(ToolsMenu, QStringLiteral("&Options..."), "Options1"), &QAction::triggered,
            this, &TVKStatsWin4::Options1Click);
    connect(ToolsMenu, &QMenu::aboutToShow, this, [this] {
        ToolsProxyItem->setEnabled(QFileInfo::exists(ProxySelection::proxyManagerPath()));
    });

    HelpMenu = addMenu(QStringLiteral("&Help"), "HelpMenu");
    QAction* topics = addItem(HelpMenu, QStringLiteral("Topics"), "HelpTopicsItem");
    topics->setShortcut(QKeySequence::HelpContents);
    connect(topics, &QAction::triggered, this, &TVKStatsWin4::HelpTopicsClick);
    connect(addItem(HelpMenu, QStringLiteral("&History"), "HelpHistoryItem"), &QAction::triggered,
            this, &TVKStatsWin4::HelpHistoryItemClick);
    HelpMenu->addSeparator();
    QMenu* site = HelpMenu->addMenu(QStringLiteral("Pinger Site"));
    site->setObjectName(QStringLiteral("PingerSiteMenu"));
    auto link = [this, site](const char* caption, const char* name, const char* key,
                             const char* path) {
        connect(addItem(site, QString::fromLatin1(caption), name), &QAction::triggered, this,
                [this, key, path] { openUrl(QUrl(PingerSiteUrl(key, path))); });
    };
    link("&Home", "Home1", "home", "/");
    link("&Pubaitri", "Pubaitri1", "pubaitri", "/pubaitri.php");
    link("&Latency", "Latency1", "latency", "/latency/");
    link("&All Pingers", "AllPingers1", "allpingers", "/allpingers/");
    HelpMenu->addSeparator();
    connect(addItem(HelpMenu, QStringLiteral("&About..."), "About1"), &QAction::triggered, this,
            &TVKStatsWin4::About1Click);

    PopupMenu1 = new QMenu(this);
    PopupMenu1->setObjectName(QStringLiteral("PopupMenu1"));
    connect(addItem(PopupMenu1, QStringLiteral("Select Up&date..."), "RunSelectItem"),
            &QAction::triggered, this, &TVKStatsWin4::FileUpdateSelectItemClick);
    QAction* runUpdate = addItem(PopupMenu1, QStringLiteral("&Update"), "RunUpdateItem");
    connect(runUpdate, &QAction::triggered, this, &TVKStatsWin4::FileUpdateItemClick);
    PopupMenu1->setDefaultAction(runUpdate);
    RunBtn->setMenu(PopupMenu1);
    RunBtn->setPopupMode(QToolButton::MenuButtonPopup);

    auto* popup2 = new QMenu(this);
    popup2->setObjectName(QStringLiteral("PopupMenu2"));
    // The three key tools; the new-keys window stays in the menu.
    popup2->addActions(KeyringsMenu->actions().mid(0, 3));
    popup2->setDefaultAction(KeyringsMenu->actions().first());
    KeyringBtn->setMenu(popup2);
    KeyringBtn->setPopupMode(QToolButton::MenuButtonPopup);

    PopupMenu3 = new QMenu(this);
    PopupMenu3->setObjectName(QStringLiteral("PopupMenu3"));
    QAction* saveExit = addItem(PopupMenu3, QStringLiteral("&Save and Exit"), "SaveExitItem");
    connect(saveExit, &QAction::triggered, this, &TVKStatsWin4::OkBtnClick);
    PopupMenu3->setDefaultAction(saveExit);
    connect(addItem(PopupMenu3, QStringLiteral("E&xit"), "ExitItem"), &QAction::triggered, this,
            &TVKStatsWin4::FileExitClick);
    OkBtn->setMenu(PopupMenu3);
    OkBtn->setPopupMode(QToolButton::MenuButtonPopup);
    addPageKeys();
}

// Ctrl+Tab and Ctrl+PgDn go to the next page, with Shift or PgUp back,
// round the ends.
void TVKStatsWin4::addPageKeys() {
    auto step = [this](int by, const QList<QKeySequence>& keys) {
        auto* action = new QAction(this);
        action->setShortcuts(keys);
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, this, [this, by] {
            if (TabSet->count() > 0)
                TabSet->setCurrentIndex((TabSet->currentIndex() + by + TabSet->count()) %
                                        TabSet->count());
        });
        addAction(action);
    };
    step(1, {QKeySequence(Qt::CTRL | Qt::Key_Tab), QKeySequence(Qt::CTRL | Qt::Key_PageDown)});
    step(-1, {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Backtab),
              QKeySequence(Qt::CTRL | Qt::Key_PageUp)});
}

StartResult TVKStatsWin4::start(const QStringList& arguments) {
    const StartResult result = m_controller.startUp(arguments);
    if (result != StartResult::Ready) {
        m_showAtStart = false;
        return result;
    }
    setWindowTitle(QStringLiteral("VKstats v" VKSTATS_VERSION));
    applySettings();
    fillProxyBox();
    m_controller.engine().windowPosition = pos();
    if (m_controller.autoMode()) {
        if (m_controller.hideMode())
            m_showAtStart = false;
        else if (TabSet->count() > 0)
            TabSetChange(0);
        Timer3.start();
    }
    return result;
}

void TVKStatsWin4::applySettings() {
    MainSettings& s = m_controller.settings();
    const WindowGeometry geometry = ParseWindowRecord(s.window, size());
    if (!s.window.isEmpty() && geometry.rect.isValid())
        setGeometry(OnScreen(geometry.rect));
    if (geometry.state == 2)
        setWindowState(Qt::WindowMaximized);
    findChild<QAction*>(QStringLiteral("ViewToolbarItem"))->setChecked(s.showToolbar);
    findChild<QAction*>(QStringLiteral("ViewStatusBarItem"))->setChecked(s.showStatusBar);
    ToolBar->setVisible(s.showToolbar);
    statusBar()->setVisible(s.showStatusBar);
    for (QAction* item : PagesMenu->actions()) {
        if (item->isCheckable())
            item->setChecked(s.tickedPages.contains(StripAmpersand(item->text())));
    }
    OkBtnAction->setVisible(s.exitLeft);
    OkSepAction->setVisible(s.exitLeft);
    applyLook();
}

// Colour and fonts, at start and at once after the options dialog: each
// font string's colour is its text colour.
void TVKStatsWin4::applyLook() {
    const MainSettings& s = m_controller.settings();
    const FontSpec dialog = StringToFont(s.dialogFont);
    setFont(ToQFont(dialog));
    // Style sheets stop a font from passing down, so these get theirs.
    for (QWidget* widget : std::initializer_list<QWidget*>{TabSet, Label1, statusBar()})
        widget->setFont(font());
    for (QLabel* label : findChildren<QLabel*>(QStringLiteral("BoxCaption"))) {
        label->setFont(font());
        QPalette palette = label->palette();
        palette.setColor(QPalette::WindowText, ToQColor(dialog.color));
        label->setPalette(palette);
    }
    const FontSpec boxes = StringToFont(s.windowFont);
    const QColor work = ToQColor(s.windowColor);
    for (QComboBox* box : {SourceBox, ProxyBox}) {
        box->setFont(ToQFont(boxes));
        QPalette palette = box->palette();
        palette.setColor(QPalette::Base, work);
        palette.setColor(QPalette::Text, ToQColor(boxes.color));
        box->setPalette(palette);
    }
    const FontSpec pages = StringToFont(s.statsFont);
    BlankView->setFont(ToQFont(pages));
    QPalette palette = BlankView->palette();
    palette.setColor(QPalette::Base, work);
    palette.setColor(QPalette::Text, ToQColor(pages.color));
    BlankView->setPalette(palette);
    for (int i = 0; i < Pages->count(); ++i) {
        Pages->widget(i)->setFont(BlankView->font());
        Pages->widget(i)->setPalette(palette);
    }
}

void TVKStatsWin4::fillSourceBox() {
    const QSignalBlocker block(SourceBox);
    SourceBox->clear();
    SourceBox->addItems(m_controller.sources());
    SourceBox->setCurrentIndex(m_controller.currentSource());
}

void TVKStatsWin4::fillProxyBox() {
    const QSignalBlocker block(ProxyBox);
    ProxyBox->clear();
    ProxyBox->addItems(m_controller.proxies().names());
    ProxyBox->setCurrentIndex(m_controller.proxies().currentIndex());
}

QPlainTextEdit* TVKStatsWin4::makeView(int index) {
    TRemailerDoc* doc = m_controller.pages().documentAt(index);
    auto* view = new QPlainTextEdit(Pages);
    view->setReadOnly(true);
    view->setFont(BlankView->font());
    view->setPalette(BlankView->palette());
    PageView* lines = doc->Viewer;
    view->setLineWrapMode(lines->wordWrap() ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
    view->setPlainText(lines->lines().text());
    connect(lines, &PageView::linesChanged, view,
            [view, lines] { view->setPlainText(lines->lines().text()); });
    return view;
}

void TVKStatsWin4::pageAdded(int index) {
    Pages->insertWidget(index, makeView(index));
    TabSet->insertTab(index, m_controller.pages().tabTextAt(index));
    PrintBtn->setEnabled(true);
}

void TVKStatsWin4::pagesCleared() {
    PrintBtn->setEnabled(false);
    const QSignalBlocker block(TabSet);
    while (TabSet->count() > 0)
        TabSet->removeTab(0);
    while (Pages->count() > 0) {
        QWidget* view = Pages->widget(0);
        Pages->removeWidget(view);
        delete view;
    }
}

void TVKStatsWin4::SetStatusText(const QString& text) {
    m_statusText = text;
    if (Panel3->isHidden())
        statusBar()->showMessage(u' ' + text);
    else
        Label1->setText(text);
}

void TVKStatsWin4::setProgress(int percent) {
    ProgressBar->setValue(percent);
}

void TVKStatsWin4::bringToFront() {
    showNormal();
    raise();
    activateWindow();
}

void TVKStatsWin4::setMainVisible(bool visible) {
    setVisible(visible);
}

bool TVKStatsWin4::askAddKeys(const QString& caption, std::array<bool, 4>& ticks) {
    return ShowChkAddKeysDlg(this, caption, ticks);
}

bool TVKStatsWin4::ShowPageTab(const QString& name) {
    const QString page = StripAmpersand(name);
    PageSet& pages = m_controller.pages();
    for (int i = 0; i < pages.count(); ++i) {
        TRemailerDoc* doc = pages.documentAt(i);
        if (doc->DocName != page)
            continue;
        SetStatusText(doc->Origin + QStringLiteral(": ") + doc->DocName);
        Pages->setCurrentIndex(i);
        TabSet->setCurrentIndex(i);
        return true;
    }
    return false;
}

void TVKStatsWin4::OpenPageIfClosed(const QString& name) {
    PageSet& pages = m_controller.pages();
    bool open = false;
    for (int i = 0; i < pages.count() && !open; ++i)
        open = pages.documentAt(i)->DocName == name;
    if (!open && QFileInfo::exists(PagePath(name)))
        pages.openLocalFile(PagePath(name));
    WaitTicks(this, 5);
}

bool TVKStatsWin4::AskSavePages() {
    return m_controller.askSavePages();
}

void TVKStatsWin4::TabSetChange(int index) {
    if (index < 0 || index >= m_controller.pages().count())
        return;
    Pages->setCurrentIndex(index);
    TabSet->setCurrentIndex(index);
    TRemailerDoc* doc = m_controller.pages().documentAt(index);
    SetStatusText(doc->Origin + QStringLiteral(": ") + doc->DocName);
}

void TVKStatsWin4::ViewMenuItemClick(QAction* item) {
    if (item->objectName() != QStringLiteral("ViewPageItem") &&
        item->objectName() != QStringLiteral("ViewAllItem"))
        return; // Toolbar and Status Bar have their own handlers
    const QString request = StripAmpersand(item->text());
    if (request.startsWith(QStringLiteral("All"))) {
        for (const char* page : MixmasterPages) {
            OpenPageIfClosed(QString::fromLatin1(page));
            WaitTicks(this, 50);
        }
        return;
    }
    if (ShowPageTab(request) || !QFileInfo::exists(PagePath(request)))
        return;
    m_controller.pages().openLocalFile(PagePath(request));
    ShowPageTab(request);
}

void TVKStatsWin4::rebuildChoiceMenu(QMenu* menu, QComboBox* box) {
    menu->clear();
    auto* group = new QActionGroup(menu);
    for (int i = 0; i < box->count(); ++i) {
        QAction* item = menu->addAction(box->itemText(i));
        item->setCheckable(true);
        item->setChecked(i == box->currentIndex());
        group->addAction(item);
        connect(item, &QAction::triggered, this, [this, box, i] {
            box->setCurrentIndex(i);
            if (box == SourceBox)
                SourceBoxChange(i);
            else
                ProxyBoxChange(i);
        });
    }
}

void TVKStatsWin4::FileMenuClick() {
    rebuildChoiceMenu(SourceMenu, SourceBox);
    rebuildChoiceMenu(ProxyMenu, ProxyBox);
}

void TVKStatsWin4::FileUpdateItemClick() {
    m_controller.fileUpdate();
}

void TVKStatsWin4::FileUpdateSelectItemClick() {
    QString source;
    QString quickSource;
    QStringList pages;
    QStringList quickPages;
    if (SelectUpdate(this, this, PagePath(QStringLiteral("urls.txt")), source, pages, quickSource,
                     quickPages))
        m_controller.updateSelected(source, pages, quickSource, quickPages);
}

void TVKStatsWin4::FileExitClick() {
    close();
}

void TVKStatsWin4::RunBtnClick() {
    if (AskSavePages())
        PopupMenu1->defaultAction()->trigger();
}

void TVKStatsWin4::CancelBtnClick() {
    m_controller.engine().cancel();
}

void TVKStatsWin4::OkBtnClick() {
    if (SaveBtn->isEnabled() && PagesWorthSaving(m_controller.pages()) > 0)
        m_controller.savePages();
    FileExitClick();
}

void TVKStatsWin4::UpdateSaveItemClick() {
    m_controller.savePages();
}

void TVKStatsWin4::UpdateCloseAllItemClick() {
    if (m_controller.closeAll()) {
        PrintBtn->setEnabled(false);
        SaveBtn->setEnabled(false);
    }
}

void TVKStatsWin4::SourceBoxChange(int index) {
    m_controller.sourceBoxChange(index);
}

void TVKStatsWin4::ProxyBoxChange(int index) {
    m_controller.proxyBoxChange(index);
}

void TVKStatsWin4::ToolsURLManagerItemClick() {
    ProxySelection& proxies = m_controller.proxies();
    if (ShowURLManager(this, this, PagePath(QStringLiteral("urls.txt")), proxies.currentName(),
                       proxies.settings()))
        m_controller.reloadSources();
}

void TVKStatsWin4::ToolsProxyItemClick() {
    const QString tool = ProxySelection::proxyManagerPath();
    if (QFileInfo::exists(tool))
        RunProgram(tool, SwShowNormal);
}

// Nothing more to do here: closing compares barred.txt with its state at
// start-up and applies a changed list to the stored pages.
void TVKStatsWin4::ToolsBarRemailerItemClick() {
    ShowBarRemailers(this, this, PagePath(QStringLiteral("barred.txt")));
}

void TVKStatsWin4::RearrangeURLsourcesClick() {
    if (ReorderSources(this, this, PagePath(QStringLiteral("urls.txt"))))
        m_controller.reloadSources();
}

void TVKStatsWin4::Options1Click() {
    const StatsOptionsResult result = ShowStatsOptions(this);
    MainSettings& s = m_controller.settings();
    s.barNew = result.barNew;
    s.noStaleSave = result.noStaleSave;
    s.windowColor = result.windowColor;
    s.windowFont = result.windowFont;
    s.dialogFont = result.dialogFont;
    s.editorFont = result.editorFont;
    applyLook();
}

void TVKStatsWin4::HelpTopicsClick() {
    const QString help = HelpFileName();
    if (!QFileInfo::exists(help))
        MsgDlg(this,
               QStringLiteral("Sorry, there is no program help available!\nThe help file ") +
                   QFileInfo(help).fileName() + QStringLiteral(" is missing."),
               Information, MbOk);
    // With no browser to start, the guide still opens in a window of our own.
    else if (!HtmlHelpLoaded() || !openUrl(QUrl::fromLocalFile(help)))
        ShowHelpViewer(this, help);
}

void TVKStatsWin4::HelpHistoryItemClick() {
    ShowHistory(this);
}

// Each key tool needs its keyring.
void TVKStatsWin4::KeyringsMenuClick() {
    const KeyringMenuState state = KeyringsMenuState();
    const QList<QAction*> items = KeyringsMenu->actions();
    items[0]->setEnabled(state.mixmaster);
    items[1]->setEnabled(state.cypherpunk);
    items[2]->setEnabled(state.nymservers);
}

// The newest keys of the open type2.list page.
void TVKStatsWin4::SpeedButton1Click() {
    PageLines page;
    m_controller.pages().pageLines(QStringLiteral("type2.list"), page);
    QStringList keys = LastKeyLines(page.toStringList());
    ShowNewMixKeys(this, &keys);
}

QPlainTextEdit* TVKStatsWin4::ViewerOfTab(int tab) const {
    VK_ASSERT_TEXT(tab >= 0 && tab < TabSet->count(), "tab >= 0 && tab < TabSet->Tabs->Count",
                   StatsWins4Unit);
    return qobject_cast<QPlainTextEdit*>(Pages->widget(tab));
}

void TVKStatsWin4::UpdatePrintItemClick() {
    if (TabSet->count() > 0)
        PrintPages(this, TabSet, [this](int tab) { return ViewerOfTab(tab); });
}

void TVKStatsWin4::About1Click() {
    ShowAbout(this, QStringLiteral("VKstats  v" VKSTATS_VERSION));
}

void TVKStatsWin4::Timer2Timer() {
    Timer2.stop();
    RunBtn->setEnabled(false);
    SaveBtn->setEnabled(false);
    CancelBtn->setEnabled(true);
    m_controller.loadLocalFiles();
    CancelBtn->setEnabled(false);
    RunBtn->setEnabled(true);
}

void TVKStatsWin4::Timer3Timer() {
    Timer3.stop();
    if (m_controller.unattendedRun() == RunOutcome::Done)
        close();
}

void TVKStatsWin4::Timer4Timer() {
    m_blinkOn = !m_blinkOn;
    const QString text = m_blinkOn ? m_statusText : QString();
    if (Panel3->isHidden())
        statusBar()->showMessage(u' ' + text);
    else
        Label1->setText(text);
}

void TVKStatsWin4::Timer5Timer() {
    Timer5.stop();
    m_controller.proxies().recheck();
    fillProxyBox();
}

void TVKStatsWin4::suiteMessage(int code, int value) {
    Q_UNUSED(value);
    if (code == 1)
        close();
    else if (code == 2)
        Timer5.start();
}

void TVKStatsWin4::runStarted() {
    setBusy(true);
}

void TVKStatsWin4::runFinished() {
    setBusy(false);
}

void TVKStatsWin4::setBusy(bool busy) {
    Panel3->setVisible(busy);
    ProgressBar->setVisible(busy);
    ProgressBar->setValue(0);
    RunBtn->setEnabled(!busy);
    CancelBtn->setEnabled(busy);
    SaveBtn->setEnabled(!busy && m_controller.saveEnabled());
    if (busy) {
        Timer4.start();
    } else {
        Timer4.stop();
        m_blinkOn = true;
        SetStatusText(m_statusText);
    }
}

QString TVKStatsWin4::windowRecord() const {
    const int state = isMaximized() ? 2 : (isMinimized() ? 1 : 0);
    return MakeWindowRecord(m_controller.settings().window, state, 0, normalGeometry());
}

// A hint shows in the status bar while the mouse is on its control; leaving
// the control brings the status text back instead of an empty bar.
bool TVKStatsWin4::event(QEvent* event) {
    if (event->type() != QEvent::StatusTip || !Panel3->isHidden())
        return QMainWindow::event(event);
    const QString tip = static_cast<QStatusTipEvent*>(event)->tip();
    statusBar()->showMessage(tip.isEmpty() ? u' ' + m_statusText : tip);
    return true;
}

void TVKStatsWin4::closeEvent(QCloseEvent* event) {
    if (!m_controller.closeQuery(windowRecord())) {
        event->ignore();
        return;
    }
    event->accept();
    // A hidden window's close does not end the program by itself.
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}
