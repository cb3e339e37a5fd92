#include "UpdateEngine.h"

#include "Global2.h"
#include "HttpGet.h"
#include "IniFile.h"
#include "PagePaths.h"
#include "PageSet.h"
#include "RemailerTracking.h"
#include "StatsSettings.h"
#include "StatsSources.h"
#include "SuiteDatabase.h"
#include "TextFile.h"

#include <QFileInfo>
#include <QLocale>

namespace {

const QString Velkin = QStringLiteral("velkin");
const QString Mlist = QStringLiteral("mlist.txt");
const QString Rlist = QStringLiteral("rlist.txt");

bool isKeyring(const QString& page) {
    return page == QStringLiteral("pubring.mix") || page == QStringLiteral("pubring.asc");
}

} // namespace

UpdateEngine::UpdateEngine(FrontEnd* frontEnd, PageSet* pages, QObject* parent)
    : QObject(parent), m_frontEnd(frontEnd), m_pages(pages) {}

UpdateEngine::~UpdateEngine() = default;

QString UpdateEngine::resultWord(int code) {
    switch (code) {
    case 200:
        return QStringLiteral("ok");
    case 304:
        return QStringLiteral("good");
    case -5000:
        return QStringLiteral("encountered HTTP library exception");
    case -5001:
        return QStringLiteral("encountered HTTP exception");
    case -5003:
        return QStringLiteral("timed out");
    case -5005:
        return QStringLiteral("http error");
    case -6000:
        return QStringLiteral("failed error checks");
    default:
        return QStringLiteral("unknown error");
    }
}

// The suite's own pages have words of their own for success and failure.
QString UpdateEngine::suiteResultWord(int code) {
    switch (code) {
    case 200:
    case 304:
        return QStringLiteral("good");
    case -5005:
        return QStringLiteral("HTTP error");
    case -5000:
    case -5001:
    case -5003:
    case -6000:
        return resultWord(code);
    default:
        return QStringLiteral("error");
    }
}

QString UpdateEngine::reportCommandLine(ReportPlacement placement, QPoint window) {
    const QString folder = ProgramFolder();
    QString line = folder + QStringLiteral("vkreports ") + u'"' + QStringLiteral("file=") + folder +
                   QStringLiteral("report.txt") + u'"' + u' ' + u'"' +
                   QStringLiteral("title=Velkin Update Report") + u'"' + u' ';
    if (placement == ReportPlacement::WinPos)
        return line + QStringLiteral("winpos=%1,%2").arg(window.x() + 10).arg(window.y() + 10);
    return line + QStringLiteral("left=%1 top=%2 height=auto width=auto")
                      .arg(window.x() + 10)
                      .arg(window.y() + 10);
}

QString UpdateEngine::serverTextLine(const QString& text) {
    QString line = text.left(MaxServerLineChars);
    for (QChar& c : line) {
        const char16_t u = c.unicode();
        if ((u < 0x20 && u != u'\t') || (u >= 0x7f && u < 0xa0))
            c = u'?';
    }
    if (text.size() > MaxServerLineChars)
        line += QStringLiteral("...");
    return line;
}

// "http error" and "unknown error" show what the server said, and a
// rejected version-2 page says why; an exception names its reason (a TLS
// failure says which).
void UpdateEngine::addReplyText(int code) {
    if (code == -6000 && m_version2) {
        addStatus(QStringLiteral("Wrong stats version. Got version 2. Needed version 1!"));
        addStatus(QStringLiteral("Click 'Help|Pinger Site|all pingers' for all URLs."));
        addStatus(QString());
    }
    // -5000 is also a refusal of ours (an onion address without Tor,
    // unusable proxy settings), so its reason is shown too.
    const bool known = code == 200 || code == 304 || code == -5003 || code == -6000;
    if (code == -5000 || code == -5001) {
        addStatus(serverTextLine(m_http->lastErrorText()));
    } else if (!known) {
        for (const QString& line : m_replyText.mid(0, MaxServerLines))
            addStatus(serverTextLine(line));
        if (m_replyText.size() > MaxServerLines)
            addStatus(QStringLiteral("..."));
    }
    for (const QString& line : std::as_const(m_findings.lines))
        addStatus(line);
}

void UpdateEngine::addStatus(const QString& line) {
    m_status->Viewer->appendLine(line);
}

void UpdateEngine::appendFeedback(const QString& text) {
    m_status->Viewer->appendToLastLine(text);
}

void UpdateEngine::runUpdate(const QString& source, const QStringList& pages,
                             const QStringList& suitePages, const QString& suiteSource,
                             ReportPlacement placement) {
    m_running = true;
    m_cancel = false;
    m_aborted = false;
    m_advisory = false;
    m_advisoryShown = false;
    m_changes = 0;
    m_failedPages.clear();
    m_worrying = false;
    newbars.clear();
    m_storedDates.reset();
    m_timeout = ReadTimeoutSeconds(IniFile(IniFileName()));
    emit runStarted();

    // One session for the run, so one pinger's pages share a connection.
    HttpSession http;
    m_http = &http;

    openStatusPage();
    if (m_frontEnd)
        m_frontEnd->setStatusText(QStringLiteral("downloading pages..."));

    if (!m_cancel)
        pageLoop(source, pages);
    if (!m_cancel && (m_lastResult == 200 || m_lastResult == 304))
        fetchSuitePages(suiteSource, suitePages);
    if (m_cancel)
        addStatus(QStringLiteral("operation cancelled by user"));
    if (m_frontEnd)
        m_frontEnd->setStatusText(QStringLiteral("Update complete!"));
    if (!m_cancel && automaticMode && m_changes > 0)
        writeReport(placement);
    if (m_advisory)
        showAdvisory();
    m_http = nullptr;
    m_running = false;
    emit runFinished();
}

void UpdateEngine::openStatusPage() {
    m_pages->closeAll();
    auto status =
        m_pages->makeDocument(QStringLiteral("download"), QStringLiteral("status.txt"), true, {});
    m_status = status.get();
    addStatus(QLocale::c().toString(QDateTime::currentDateTime(),
                                    QStringLiteral("ddd MMM dd hh:mm:ss yyyy")));
    m_pages->addPage(QStringLiteral("status"), std::move(status));
    m_pages->setCurrent(0);
}

void UpdateEngine::refuseRun(const QStringList& why) {
    m_running = true;
    m_cancel = false;
    m_aborted = false;
    m_changes = 0;
    newbars.clear();
    emit runStarted();
    openStatusPage();
    for (const QString& line : why)
        addStatus(line);
    m_lastResult = RefusedResult;
    if (m_frontEnd)
        m_frontEnd->setStatusText(QStringLiteral("Nothing downloaded: no proxy"));
    m_running = false;
    emit runFinished();
}

QString UpdateEngine::lookUpUrl(const QString& source, const QString& pageName, bool* stop) {
    StatsSourceList sources(ProgramFolder() + QStringLiteral("urls.txt"), m_frontEnd);
    // Without a URL the lookup repeats its message until urls.txt is mended,
    // but only while somebody is there to mend it.
    for (;;) {
        const QString url = sources.urlOfPage(source, pageName);
        if (!url.isEmpty())
            return url;
        if (m_cancel || !m_frontEnd || !m_frontEnd->isInteractive()) {
            m_aborted = !m_cancel;
            m_cancel = true;
            *stop = true;
            return {};
        }
    }
}

void UpdateEngine::pageLoop(const QString& runSource, const QStringList& pages) {
    m_lastResult = 0;
    m_fellBack = false;
    bool gotMlist = false;
    bool gotRlist = false;
    StatsSourceList sources(ProgramFolder() + QStringLiteral("urls.txt"), m_frontEnd);
    prefetch(sources, runSource, pages);
    for (const QString& page : pages) {
        if (m_cancel)
            break;
        if (m_fellBack && isKeyring(page))
            continue; // keys only come from the source the run began with
        QString source = runSource;
        bool firstTry = true;
        int index = 0;
        int code = 0;
        while (code != 200) {
            bool stop = false;
            const QString url = lookUpUrl(source, page, &stop);
            if (stop)
                return;
            addStatus(page + QStringLiteral("..."));
            code = fetchPage(source, url, page, firstTry);
            WaitTicks(m_frontEnd, 100);
            if (m_cancel)
                return;
            appendFeedback(resultWord(code) + m_findings.note);
            addReplyText(code);
            if (code == 200) {
                gotMlist = gotMlist || page == Mlist;
                gotRlist = gotRlist || page == Rlist;
            }
            if (code != 200 && code != 304)
                m_http->dropPrefetched(); // from here on, one page after the other
            if (code == 200 || code == 304)
                break;
            if (!automaticMode || code == -5000 || code == -5001) {
                m_failedPages.append(page);
                break;
            }
            ++index;
            QString next = sources.sourceNameByIndex(index);
            if (next.toLower() == Velkin)
                next = sources.sourceNameByIndex(++index);
            if (next.isEmpty()) {
                addStatus(
                    QStringLiteral("There is something wrong and it is not your stats source!"));
                addStatus(QStringLiteral("Sorry, I failed completely!"));
                m_failedPages.append(page);
                break;
            }
            addStatus(QStringLiteral("next source..."));
            source = next;
            code = 0;
            firstTry = false;
            m_fellBack = true;
        }
    }
    compareRemailers(gotMlist, gotRlist);
    if (m_lastResult == 0)
        m_lastResult = 200;
}

int UpdateEngine::fetchPage(const QString& source, const QString& url, const QString& pageName,
                            bool firstTry) {
    QDateTime lastModified = dateToSend(pageName, firstTry);
    PageLines lines;
    int code =
        m_http->HTTPGet(m_frontEnd, url, lines, proxySettings, &m_cancel, m_timeout, lastModified);
    m_lastResult = code;
    m_replyText.clear();
    m_findings = {};
    if (code != 200) {
        // shown below the status line for some errors
        m_replyText = lines.toStringList();
        return code;
    }
    m_version2 = !lines.isEmpty() && lines.view(0).startsWith(QLatin1String("Stats-Version: 2.0"));
    auto doc = m_pages->makeDocument(source, pageName, true, std::move(lines));
    doc->Extra = lastModified.isValid() ? lastModified.toUTC().toString(Qt::ISODate) : QString();
    if (!doc->IsValidPage()) {
        code = -6000;
        m_lastResult = code;
        m_findings.lines = RefusalReasons(*doc);
    } else {
        m_findings = CheckFreshness(*doc, today.isNull() ? QDate::currentDate() : today);
        m_worrying = m_worrying || m_findings.worrying();
        emit pageAccepted();
    }
    m_pages->addPage(pageName, std::move(doc));
    return code;
}

void UpdateEngine::fetchSuitePages(const QString& suiteSource, const QStringList& pages) {
    StatsSourceList sources(ProgramFolder() + QStringLiteral("urls.txt"), m_frontEnd);
    prefetch(sources, suiteSource, pages);
    for (const QString& page : pages) {
        if (m_cancel)
            return;
        if (!IsSafePageName(page)) {
            addStatus(page + QStringLiteral("..."));
            appendFeedback(QStringLiteral("refused: not a plain file name"));
            continue;
        }
        const QString url = sources.urlOfPage(suiteSource, page);
        if (url.isEmpty())
            continue;
        addStatus(page + QStringLiteral("..."));
        const PageLines before = ReadPage(PagePath(page));
        const int code = fetchPage(suiteSource, url, page, true);
        WaitTicks(m_frontEnd, 100);
        if (m_cancel)
            return;
        appendFeedback(suiteResultWord(code));
        if (code != 200 && code != 304)
            m_failedPages.append(page);
        if (code == 200 && page == QStringLiteral("advisory.txt")) {
            PageLines now;
            m_pages->pageLines(page, now);
            m_advisory = now != before;
        }
    }
}

QDateTime UpdateEngine::dateToSend(const QString& pageName, bool firstTry) {
    if (!automaticMode || !firstTry || commandLinePages)
        return {};
    // Read once per run: every page asks twice (its prefetch, its fetch), and
    // the run itself stores no date before it is over.
    if (!m_storedDates) {
        const SuiteDataFile* file = TheSuiteDataFile();
        m_storedDates =
            file && file->database ? file->database->readValues() : QHash<QString, QString>();
    }
    return QDateTime::fromString(m_storedDates->value(pageName), Qt::ISODate);
}

// Starts the source's pages together, so that they travel side by side; the
// loops still take them one at a time, in order, so the status page reads
// as before.
void UpdateEngine::prefetch(const StatsSourceList& sources, const QString& source,
                            const QStringList& pages) {
    for (const QString& page : pages) {
        if (!IsSafePageName(page))
            continue;
        const std::optional<QString> url = sources.findUrl(source, page);
        if (url)
            m_http->prefetch(*url, proxySettings, dateToSend(page, true));
    }
}

void UpdateEngine::compareRemailers(bool mlist, bool rlist) {
    PageLines& report = m_status->Lines();
    const qsizetype before = report.size();
    // After a fall-back the refused page is in the set too; only the page
    // taken counts.
    const TRemailerDoc* mix = mlist ? m_pages->acceptedPage(Mlist) : nullptr;
    const TRemailerDoc* cpk = rlist ? m_pages->acceptedPage(Rlist) : nullptr;
    if (mix)
        ReportMixmasterChanges(mix->Lines(), report, barNew, newbars);
    if (cpk)
        ReportCypherpunkChanges(cpk->Lines(), report, barNew, newbars);
    m_changes = int(report.size() - before);
    if (m_changes > 0)
        m_status->Viewer->notifyChanged();
}

void UpdateEngine::writeReport(ReportPlacement placement) {
    // The report viewer shows the run's status page.
    QString error;
    if (!WriteLines(ProgramFolder() + QStringLiteral("report.txt"), m_status->Lines(), &error)) {
        addStatus(error);
        return;
    }
    RunProgram(reportCommandLine(placement, windowPosition), SwShowNormal);
}

void UpdateEngine::showAdvisory() {
    PageLines lines;
    m_pages->pageLines(QStringLiteral("advisory.txt"), lines);
    lines.removeIf([](const QString& line) {
        return line.trimmed().compare(QStringLiteral("velkin user advisory"),
                                      Qt::CaseInsensitive) == 0;
    });
    TrimLeadingBlankLines(lines);
    TrimTrailingBlankLines(lines);
    QStringList shown;
    for (const QString& line : lines)
        shown.append(serverTextLine(line));
    m_advisoryShown = true;
    MsgDlg(m_frontEnd, shown.join(u'\n'), Information, MbOk);
}
