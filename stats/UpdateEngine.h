#pragma once

#include "FrontEnd.h"
#include "PageFreshness.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QPoint>
#include <QStringList>

#include <optional>

class HttpSession;
class PageSet;
class StatsSourceList;
class TRemailerDoc;

// One update run: downloads a source's pages, checks each through its
// document class, falls back along urls.txt in automatic mode, writes every
// step on the status page, then fetches the suite's own pages and reports
// new and deceased remailers.
class UpdateEngine : public QObject {
    Q_OBJECT
public:
    // How the report viewer is told where to open: beside the main window,
    // or (for a run started from the source box) in one "winpos=" argument.
    enum class ReportPlacement { Edges, WinPos };

    UpdateEngine(FrontEnd* frontEnd, PageSet* pages, QObject* parent = nullptr);
    ~UpdateEngine() override;

    void runUpdate(const QString& source, const QStringList& pages, const QStringList& suitePages,
                   const QString& suiteSource = QStringLiteral("velkin"),
                   ReportPlacement placement = ReportPlacement::Edges);
    // A run that may not download (its proxy is gone): the status page says
    // why and nothing is fetched; the last result is then RefusedResult.
    void refuseRun(const QStringList& why);
    static constexpr int RefusedResult = -7000;
    void cancel() { m_cancel = true; }

    bool isRunning() const { return m_running; }
    bool wasCancelled() const { return m_cancel; }
    // The run stopped because a question could not be answered.
    bool wasAborted() const { return m_aborted; }
    int lastResult() const { return m_lastResult; }
    int changeCount() const { return m_changes; }
    bool advisoryShown() const { return m_advisoryShown; }
    // Pages of the run that ended without being had, after any fall-back.
    const QStringList& failedPages() const { return m_failedPages; }
    // A page taken was stale, or its keyring leaves too few remailers.
    bool worrying() const { return m_worrying; }

    // Run settings, set by the main window or the unattended runner.
    bool automaticMode = false;
    std::optional<QStringList> commandLinePages;
    bool barNew = false;
    QStringList proxySettings;
    // Names of remailers seen for the first time, emptied at each run start.
    QStringList newbars;
    // The day pages and keys are judged by; null means the local clock's.
    QDate today;
    // Where the main window stands, for the report viewer's placement.
    QPoint windowPosition;

    static QString resultWord(int code);
    static QString suiteResultWord(int code);
    static QString reportCommandLine(ReportPlacement placement, QPoint windowPosition);
    // Text a server sent, made fit for the status page, a terminal and the
    // report: control characters (tab aside) become '?', the line is capped.
    static QString serverTextLine(const QString& text);
    static constexpr qsizetype MaxServerLineChars = 200;
    static constexpr qsizetype MaxServerLines = 40;

signals:
    void runStarted();
    void runFinished();
    // A downloaded page was accepted, so there is something to save.
    void pageAccepted();

private:
    void pageLoop(const QString& source, const QStringList& pages);
    void fetchSuitePages(const QString& suiteSource, const QStringList& pages);
    int fetchPage(const QString& source, const QString& url, const QString& pageName,
                  bool firstTry);
    QString lookUpUrl(const QString& source, const QString& pageName, bool* stop);
    QDateTime dateToSend(const QString& pageName, bool firstTry);
    void prefetch(const StatsSourceList& sources, const QString& source, const QStringList& pages);
    void addStatus(const QString& line);
    void addReplyText(int code);
    void openStatusPage();
    void appendFeedback(const QString& text);
    void compareRemailers(bool mlist, bool rlist);
    void writeReport(ReportPlacement placement);
    void showAdvisory();

    FrontEnd* m_frontEnd;
    PageSet* m_pages;
    HttpSession* m_http = nullptr;
    TRemailerDoc* m_status = nullptr;
    bool m_cancel = false;
    bool m_running = false;
    bool m_aborted = false;
    bool m_fellBack = false;
    bool m_advisory = false;
    bool m_advisoryShown = false;
    int m_lastResult = 0;
    int m_timeout = 30;
    int m_changes = 0;
    bool m_version2 = false;
    QStringList m_replyText;
    PageFindings m_findings;
    QStringList m_failedPages;
    bool m_worrying = false;
    // The dates the data file holds, read at the run's first need.
    std::optional<QHash<QString, QString>> m_storedDates;
};
