#pragma once

#include "FrontEnd.h"
#include "PageSet.h"
#include "ProxySelection.h"
#include "SavePages.h"
#include "StatsSettings.h"
#include "UpdateEngine.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <optional>

// What the command line asks for. Every test is a substring test on the
// lower-cased argument, so "autohide" only hides.
struct CommandLine {
    bool versionQuery = false;
    bool autoMode = false;
    bool hideMode = false;
    // Made only when a page is named: pubring.asc and rlist.txt are taken.
    std::optional<QStringList> commandLinePages;
};
CommandLine ParseCommandLine(const QStringList& arguments);

enum class StartResult { Ready, Refused, VersionWritten };

// How an unattended run ended; the values are those broadcast to the suite.
// NoProxy (nothing downloaded because the chosen proxy is gone) reaches the
// suite as Failed.
enum class RunOutcome { Done = 1, Aborted = 2, Failed = 4, NoProxy = 8 };

// The main window's logic without its widgets: start-up checks, the update
// commands, saving and closing. The desktop window and the headless runner
// both drive it; it talks back only through its FrontEnd and the broadcast.
class StatsController : public QObject {
    Q_OBJECT
public:
    // Sends a status report (code, value) to the suite's other programs.
    using Broadcast = std::function<void(int code, int value)>;

    StatsController(FrontEnd* frontEnd, Broadcast broadcast, QObject* parent = nullptr);
    ~StatsController() override;

    // The start-up checks, the command line and the settings, in that order.
    // Anything but Ready means the program ends without showing a window.
    StartResult startUp(const QStringList& arguments);

    bool autoMode() const { return m_autoMode; }
    bool hideMode() const { return m_hideMode; }
    const std::optional<QStringList>& commandLinePages() const { return m_commandLinePages; }

    // The settings as loaded; the options dialog changes them in place.
    MainSettings& settings() { return m_settings; }
    const MainSettings& settings() const { return m_settings; }

    // The Pages menu's ticks.
    bool isTicked(const QString& page) const { return m_ticked.contains(page); }
    void setTicked(const QString& page, bool ticked);

    // The source box: entries of urls.txt and the one shown.
    const QStringList& sources() const { return m_sources; }
    int currentSource() const { return m_currentSource; }
    QString currentSourceName() const;
    void setCurrentSource(int index);
    // Reads urls.txt again, keeping the shown name when it is still there.
    void reloadSources();
    QString lastSource() const;
    void setLastSource(const QString& source);

    ProxySelection& proxies() { return m_proxies; }
    void proxyBoxChange(int index);
    PageSet& pages() { return m_pages; }
    UpdateEngine& engine() { return m_engine; }

    bool saveEnabled() const { return m_saveEnabled; }
    // Whether barred.txt changed since start-up (edited by hand or by a
    // save that barred new remailers): closing then applies it to the
    // stored pages.
    bool barredChanged() const;

    // The update commands.
    void fileUpdate();
    void updateSelected(const QString& source, const QStringList& pages, const QString& quickSource,
                        const QStringList& quickPages);
    void defaultSourceUpdate();
    // The user picked entry index of the source box: ask, then update.
    void sourceBoxChange(int index);
    RunOutcome unattendedRun();
    // The last unattended run saved the pages it got although some failed.
    bool savedDespiteFailures() const { return m_savedDespiteFailures; }

    SaveResult savePages();
    const SaveResult& lastSave() const { return m_lastSave; }
    bool askSavePages();
    bool closeAll();
    void loadLocalFiles();
    // Whether the program may close; when it may, the closing work is done.
    bool closeQuery(const QString& windowRecord);

signals:
    void saveEnabledChanged(bool enabled);
    void sourcesChanged();
    void runFinished();

private:
    bool checkEnvironment();
    void loadSettings();
    void saveSettings(const QString& windowRecord);
    void fillSources(const QString& shown);
    void setSaveEnabled(bool enabled);
    void updateFromShownSource(UpdateEngine::ReportPlacement placement);
    void run(const QString& source, const QStringList& pages, const QStringList& suitePages,
             const QString& suiteSource,
             UpdateEngine::ReportPlacement placement = UpdateEngine::ReportPlacement::Edges);
    void report(RunOutcome outcome);
    bool refuseWithoutProxy();

    FrontEnd* m_frontEnd;
    Broadcast m_broadcast;
    PageSet m_pages;
    UpdateEngine m_engine;
    ProxySelection m_proxies;
    MainSettings m_settings;
    QStringList m_ticked;
    QStringList m_sources;
    int m_currentSource = -1;
    bool m_autoMode = false;
    bool m_hideMode = false;
    bool m_saveEnabled = false;
    std::optional<QStringList> m_commandLinePages;
    SaveResult m_lastSave;
    bool m_savedDespiteFailures = false;
    QByteArray m_barredAtStart;
};
