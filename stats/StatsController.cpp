#include "StatsController.h"

#include "BarredList.h"
#include "Global2.h"
#include "IniFile.h"
#include "KeyringUpdate.h"
#include "PagePaths.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

const QString Velkin = QStringLiteral("velkin");
const QString LastSourceKey = QStringLiteral("statslastsource");

QByteArray barredBytes() {
    QFile file(PagePath(QStringLiteral("barred.txt")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString urlsPath() {
    return PagePath(QStringLiteral("urls.txt"));
}

// The engine always fetches in this order; other marked names (type2.list
// above all, which is derived) are dropped.
QStringList OrderedPages(const QStringList& marked) {
    QStringList ordered;
    for (const char* name : KeyPageNames) {
        if (marked.contains(QString::fromLatin1(name)))
            ordered.append(QString::fromLatin1(name));
    }
    return ordered;
}

} // namespace

CommandLine ParseCommandLine(const QStringList& arguments) {
    CommandLine result;
    if (!arguments.isEmpty() && arguments.first().toLower().contains(QStringLiteral("version"))) {
        result.versionQuery = true;
        return result;
    }
    for (const QString& argument : arguments) {
        const QString word = argument.toLower();
        if (word.contains(QStringLiteral("hidden")) || word.contains(QStringLiteral("hide")))
            result.hideMode = true;
        else if (word.contains(QStringLiteral("auto")))
            result.autoMode = true;
        else if (word == QStringLiteral("pubring.asc") || word == QStringLiteral("rlist.txt")) {
            if (!result.commandLinePages)
                result.commandLinePages.emplace();
            result.commandLinePages->append(word);
        }
    }
    // Hiding only makes sense for a run nobody watches.
    if (result.hideMode && !result.autoMode)
        result.hideMode = false;
    return result;
}

StatsController::StatsController(FrontEnd* frontEnd, Broadcast broadcast, QObject* parent)
    : QObject(parent), m_frontEnd(frontEnd), m_broadcast(std::move(broadcast)), m_pages(frontEnd),
      m_engine(frontEnd, &m_pages), m_proxies(frontEnd) {
    m_pages.barFilter = RemoveBarredRemailers;
    connect(&m_engine, &UpdateEngine::pageAccepted, this, [this] { setSaveEnabled(true); });
    connect(&m_engine, &UpdateEngine::runFinished, this, &StatsController::runFinished);
}

StatsController::~StatsController() {
    CloseSuiteDataFile();
}

StartResult StatsController::startUp(const QStringList& arguments) {
    QDir().mkpath(ProgramFolder());
    QDir::setCurrent(ProgramFolder());
    if (!checkEnvironment())
        return StartResult::Refused;

    const CommandLine line = ParseCommandLine(arguments);
    if (line.versionQuery) {
        IniFile ini(IniFileName());
        if (!ini.writeString(QStringLiteral("stats"), QStringLiteral("version"),
                             QStringLiteral(VKSTATS_VERSION)))
            MsgDlg(m_frontEnd, ini.errorString(), Error, MbOk);
        return StartResult::VersionWritten;
    }
    m_autoMode = line.autoMode;
    m_hideMode = line.hideMode;
    m_commandLinePages = line.commandLinePages;

    QString error;
    if (!InstallDefaultUrls(urlsPath(), &error))
        MsgDlg(m_frontEnd, error, Warning, MbOk);
    loadSettings();
    m_barredAtStart = barredBytes();
    if (QFileInfo::exists(HelpFileName()))
        InitHtmlHelp(m_frontEnd);
    const QString status = PagePath(QStringLiteral("status.txt"));
    if (QFileInfo::exists(status))
        m_pages.openLocalFile(status);
    return StartResult::Ready;
}

bool StatsController::checkEnvironment() {
    if (GetMixmasterDir().isEmpty()) {
        report(RunOutcome(3));
        MsgDlg(m_frontEnd,
               QStringLiteral(
                   "Mixmaster is not installed on this computer! Without it, I cannot continue!"),
               Error, MbOk);
        return false;
    }
    // The second test differs from the first only in letter case, so it
    // only matters where file names are not matched the suite's way.
    if (IsDataFileEncrypted(m_frontEnd,
                            QStringLiteral("I find your VK database is encrypted. You need    \n"
                                           "to start VK and decrypt the file.")))
        return false;
    const QString folder = ProgramFolder();
    if (!QFileInfo::exists(folder + QStringLiteral("vk.dbc")) &&
        QFileInfo::exists(folder + QStringLiteral("vk.pgp"))) {
        MsgDlg(m_frontEnd,
               QStringLiteral("VKstats requires use of the VK database. Your database is   \n"
                              "encrypted. You need to start VK to decrypt it! Then you can  \n"
                              "restart VKstats."),
               Information, MbOk);
        return false;
    }
    if (!OpenSuiteDataFile(m_frontEnd)) {
        report(RunOutcome(3));
        return false;
    }
    return true;
}

void StatsController::loadSettings() {
    const IniFile ini(IniFileName());
    const IniFile::Operation reading(ini);
    m_settings = LoadMainSettings(ini);
    m_ticked = m_settings.tickedPages;
    m_proxies.load(ini.readString(QStringLiteral("stats"), QStringLiteral("lastproxy"),
                                  ProxySelection::noneEntry()),
                   m_autoMode);
    fillSources(lastSource());
}

void StatsController::report(RunOutcome outcome) {
    if (m_broadcast)
        m_broadcast(3, int(outcome));
}

void StatsController::setTicked(const QString& page, bool ticked) {
    m_ticked.removeAll(page);
    if (ticked)
        m_ticked.append(page);
}

QString StatsController::currentSourceName() const {
    return m_currentSource >= 0 && m_currentSource < m_sources.size() ? m_sources[m_currentSource]
                                                                      : QString();
}

void StatsController::setCurrentSource(int index) {
    m_currentSource = index >= 0 && index < m_sources.size() ? index : -1;
}

void StatsController::reloadSources() {
    fillSources(currentSourceName());
}

void StatsController::fillSources(const QString& shown) {
    const SourceBoxContent box = StatsSourceList(urlsPath(), m_frontEnd).sourceBoxContent(shown);
    m_sources = box.entries;
    m_currentSource = box.selected;
    emit sourcesChanged();
}

QString StatsController::lastSource() const {
    const SuiteDataFile* file = TheSuiteDataFile();
    return file && file->database ? file->database->readValue(LastSourceKey) : QString();
}

void StatsController::setLastSource(const QString& source) {
    if (SuiteDataFile* file = TheSuiteDataFile(); file && file->database)
        file->database->writeValue(LastSourceKey, source);
}

void StatsController::proxyBoxChange(int index) {
    m_proxies.choose(index);
}

void StatsController::setSaveEnabled(bool enabled) {
    if (m_saveEnabled == enabled)
        return;
    m_saveEnabled = enabled;
    emit saveEnabledChanged(enabled);
}

// Held-back downloads: the status page and a message say why, nothing is
// fetched.
bool StatsController::refuseWithoutProxy() {
    if (!m_proxies.blocked())
        return false;
    m_engine.refuseRun(m_proxies.blockReason());
    MsgDlg(m_frontEnd, m_proxies.blockReason().join(u'\n'), Warning, MbOk);
    return true;
}

void StatsController::run(const QString& source, const QStringList& pages,
                          const QStringList& suitePages, const QString& suiteSource,
                          UpdateEngine::ReportPlacement placement) {
    if (refuseWithoutProxy())
        return;
    m_engine.automaticMode = m_autoMode;
    m_engine.commandLinePages = m_commandLinePages;
    m_engine.barNew = m_settings.barNew;
    m_engine.proxySettings = m_proxies.settings();
    m_engine.runUpdate(source, pages, suitePages, suiteSource, placement);
}

void StatsController::updateFromShownSource(UpdateEngine::ReportPlacement placement) {
    const QString source = currentSourceName();
    const StatsSourceList list(urlsPath(), m_frontEnd);
    const QStringList marked = list.markedPages(source, m_ticked);
    const QStringList suitePages = list.markedPages(Velkin, m_ticked);
    if (marked.isEmpty() && suitePages.isEmpty()) {
        MsgDlg(m_frontEnd, QStringLiteral("No pages marked for update!     "), Information, MbOk);
        return;
    }
    QStringList pages = OrderedPages(marked);
    if (!ChkAddKeys(m_frontEnd, pages, lastSource(), source))
        return;
    run(source, pages, suitePages, Velkin, placement);
    setLastSource(source);
}

void StatsController::fileUpdate() {
    updateFromShownSource(UpdateEngine::ReportPlacement::Edges);
}

void StatsController::updateSelected(const QString& source, const QStringList& pages,
                                     const QString& quickSource, const QStringList& quickPages) {
    run(source, OrderedPages(pages), quickPages, quickSource);
}

void StatsController::defaultSourceUpdate() {
    const QString source = StatsSourceList(urlsPath(), m_frontEnd).defaultSource();
    if (source.isEmpty()) {
        MsgDlg(m_frontEnd,
               QStringLiteral("Sorry, I can't locate the default stats source in URLs.txt.   \n"
                              "I can't continue with the update!"),
               Information, MbOk);
        m_autoMode = false;
        return;
    }
    QStringList pages = m_commandLinePages.value_or(QStringList());
    if (!ChkAddKeys(m_frontEnd, pages, lastSource(), source))
        return;
    run(source, pages, {}, Velkin);
    setLastSource(source);
}

void StatsController::sourceBoxChange(int index) {
    setCurrentSource(index);
    if (MsgDlg(m_frontEnd, QStringLiteral("Update remailer pages now?     "), Confirm,
               MbOkCancel) == IdOk)
        updateFromShownSource(UpdateEngine::ReportPlacement::WinPos);
}

RunOutcome StatsController::unattendedRun() {
    if (refuseWithoutProxy()) {
        report(RunOutcome::Failed);
        m_autoMode = false;
        if (m_frontEnd)
            m_frontEnd->setMainVisible(true);
        return RunOutcome::NoProxy;
    }
    if (m_commandLinePages && !m_commandLinePages->isEmpty())
        defaultSourceUpdate();
    else
        fileUpdate();
    const bool aborted = m_engine.wasCancelled();
    const int last = m_engine.lastResult();
    const bool lastFailed = last != 200 && last != 304;
    // One page that could not be had does not throw away the ones that
    // were: they are saved, and the failed page keeps its old file.
    // Only when nothing at all came does a failed last page still mean
    // "failed".
    const bool someFailed = lastFailed || !m_engine.failedPages().isEmpty();
    m_savedDespiteFailures =
        !aborted && someFailed && (!lastFailed || PagesWorthSaving(m_pages) > 0);
    if (m_savedDespiteFailures)
        savePages();
    if (aborted || lastFailed) {
        const RunOutcome outcome = aborted ? RunOutcome::Aborted : RunOutcome::Failed;
        if (m_autoMode)
            report(outcome);
        m_autoMode = false;
        if (m_frontEnd)
            m_frontEnd->setMainVisible(true);
        return outcome;
    }
    if (!m_savedDespiteFailures)
        savePages();
    WaitTicks(m_frontEnd, 600);
    if (m_frontEnd)
        m_frontEnd->setMainVisible(false);
    // The window is hidden now: nothing left to repaint, so only what is
    // pending is handled.
    WaitTicks(m_frontEnd, 0);
    report(RunOutcome::Done);
    return RunOutcome::Done;
}

SaveResult StatsController::savePages() {
    SaveResult result =
        SavePages(m_frontEnd, m_pages, m_engine.newbars, m_settings.barNew, m_settings.noStaleSave);
    // An unattended run in a window must not stop for this notice.
    if (!result.skipped.isEmpty() && (!m_autoMode || !m_frontEnd || !m_frontEnd->isInteractive()))
        MsgDlg(m_frontEnd,
               QStringLiteral("Stale pages not saved (\"Do not save stale pages\"); the old "
                              "files are kept:\n") +
                   result.skipped.join(u'\n'),
               Information, MbOk);
    if (!result.errors.isEmpty())
        MsgDlg(m_frontEnd,
               QStringLiteral("These pages could not be saved; the old files are kept:\n") +
                   result.errors.join(u'\n'),
               Error, MbOk);
    if (result.ok())
        setSaveEnabled(false);
    m_lastSave = result;
    return result;
}

bool StatsController::askSavePages() {
    if (!m_saveEnabled || PagesWorthSaving(m_pages) == 0)
        return true;
    switch (MsgDlg(m_frontEnd,
                   QStringLiteral("Your remailer pages are not saved. Save them now?     "),
                   Confirm, MbYesNoCancel)) {
    case IdCancel:
        return false;
    case IdYes:
        savePages();
        return true;
    default:
        return true;
    }
}

bool StatsController::closeAll() {
    if (!askSavePages())
        return false;
    m_pages.closeAll();
    reloadSources();
    setSaveEnabled(false);
    return true;
}

void StatsController::loadLocalFiles() {
    if (m_frontEnd)
        m_frontEnd->setStatusText(QStringLiteral("Loading..."));
    m_pages.loadLocalFiles();
    if (m_frontEnd)
        m_frontEnd->setStatusText(QStringLiteral("local files loaded"));
}

bool StatsController::closeQuery(const QString& windowRecord) {
    if (m_engine.isRunning()) {
        if (m_frontEnd)
            m_frontEnd->beep();
        return false;
    }
    if (!askSavePages())
        return false;
    // Keeping the shown source makes it the first section, the one
    // unattended runs use.
    const QString shown = currentSourceName();
    const StatsSourceList sources(urlsPath(), m_frontEnd);
    if (shown != sources.sourceNameByIndex(0)) {
        const int answer = MsgDlg(m_frontEnd,
                                  QStringLiteral("Your stats source has been changed. Do you wish "
                                                 "to keep the current source?     "),
                                  Confirm, MbYesNoCancel);
        if (answer == IdCancel)
            return false;
        if (answer == IdYes)
            sources.moveSource(shown, 0);
    }
    QString error;
    if (barredChanged() && !ApplyBarredListToStoredFiles(&error))
        MsgDlg(m_frontEnd, error, Error, MbOk);
    CloseHtmlHelp();
    saveSettings(windowRecord);
    if (m_frontEnd)
        m_frontEnd->setMainVisible(false);
    return true;
}

bool StatsController::barredChanged() const {
    return barredBytes() != m_barredAtStart;
}

void StatsController::saveSettings(const QString& windowRecord) {
    MainSettingsToSave s;
    s.window = windowRecord;
    s.lastProxy = m_proxies.currentName();
    s.windowColor = m_settings.windowColor;
    s.windowFont = m_settings.windowFont;
    s.editorFont = m_settings.editorFont;
    s.dialogFont = m_settings.dialogFont;
    s.tickedPages = m_ticked;
    s.showStatusBar = m_settings.showStatusBar;
    s.showToolbar = m_settings.showToolbar;
    IniFile ini(IniFileName());
    if (!SaveMainSettings(ini, s))
        MsgDlg(m_frontEnd, ini.errorString(), Error, MbOk);
}
