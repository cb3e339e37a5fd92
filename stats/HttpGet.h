#pragma once

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QString>
#include <QStringList>

#include "PageLines.h"

#include <memory>
#include <vector>

class FrontEnd;
class QNetworkReply;

// Result codes of one download. The update engine appends its status word by
// these numbers and decides from them whether to try the next source; how
// each failure is sorted is written down in docs/downloads.md.
namespace HttpCode {
inline constexpr int Ok = 200;
inline constexpr int NotModified = 304;
// Misuse: bad URL, a scheme other than http/https, proxy settings that
// cannot be used (malformed, or credentials the proxy refuses).
inline constexpr int LibraryError = -5000;
// The transfer failed and says so at once: TLS verification, a redirect
// refused, a body over the size cap, a connection refused, reset or closed
// early, an answer that is not HTTP, or the user cancelled.
inline constexpr int TransferError = -5001;
// No answer: unknown host, proxy unreachable or the time-out reached.
inline constexpr int TimedOut = -5003;
// The server answered with an HTTP error status; its page comes back.
inline constexpr int HttpError = -5005;
} // namespace HttpCode

// What every request says, the same for every user of one version: nothing
// about the desktop's language, no cookies.
namespace RequestHeaders {
inline constexpr char UserAgent[] = "VKstats/" VKSTATS_VERSION;
// Qt adds the desktop's language when this is left out, so it is fixed.
inline constexpr char AcceptLanguage[] = "en";
} // namespace RequestHeaders

// One update run's downloads. All pages of a run go through one access
// manager, so the pages of one pinger share kept-alive connections (through
// the same proxy, with the same credentials), and HTTP/2 where the server
// offers it. After a failed transfer the next page gets a new manager, and so
// new connections: a connection a misbehaving server still holds never
// carries another page.
//
// Through a SOCKS5 proxy record without credentials of its own the session
// sends a user name and password made up for it: Tor puts each run on a
// circuit of its own (IsolateSOCKSAuth), as Tor Browser does for each site.
//
// Fetches block the caller in a local event loop: the window keeps
// repainting and its cancel button can set the flag that the fetch watches.
class HttpSession {
public:
    static constexpr qint64 DefaultMaxBytes = 16 * 1024 * 1024;
    // Enough of an error page to show what went wrong.
    static constexpr qint64 ErrorPageMaxBytes = 64 * 1024;
    static constexpr int MaxRedirects = 5;
    // Used when the settings give no usable time-out.
    static constexpr int DefaultTimeoutSeconds = 30;

    HttpSession();
    ~HttpSession();
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;

    // The largest page body accepted; a larger one is dropped while it is
    // still arriving.
    void setMaxBytes(qint64 bytes) { m_maxBytes = bytes > 0 ? bytes : DefaultMaxBytes; }
    qint64 maxBytes() const { return m_maxBytes; }

    // Downloads url into lines (one entry per line, bytes kept as Latin-1).
    //   owner          receives progress 0..100; may be null
    //   proxySettings  name=value lines (kind, host, port, user, password);
    //                  empty for a direct connection
    //   cancel         watched while waiting; may be null
    //   timeoutSeconds bounds the whole transfer, redirects included
    //   lastModified   in: sent as If-Modified-Since when valid;
    //                  out: the page's Last-Modified, invalid when it had none
    // Returns one of the HttpCode values. lines holds the page on Ok, the
    // (shortened) error page on HttpError, and nothing otherwise.
    int HTTPGet(FrontEnd* owner, const QString& url, PageLines& lines,
                const QStringList& proxySettings, const bool* cancel, int timeoutSeconds,
                QDateTime& lastModified);

    // Why the last fetch failed, in words, for the status page; empty after
    // a success.
    QString lastErrorText() const { return m_lastError; }

    // Starts fetching url at once, so that several pages travel side by
    // side; the HTTPGet that later asks for the same url, with the same
    // proxy settings and date, takes the transfer over (its time-out counts
    // from then). A request HTTPGet would refuse is not started.
    void prefetch(const QString& url, const QStringList& proxySettings,
                  const QDateTime& lastModified);
    // Stops the prefetched transfers still on their way; those complete
    // already wait for their HTTPGet.
    void dropPrefetched();

    // Turns proxy settings into a proxy: none for an empty list. False, with
    // the reason in error, for settings that cannot be used.
    static bool proxyFromSettings(const QStringList& settings, QNetworkProxy& proxy,
                                  QString* error = nullptr);

private:
    struct Prefetched;
    // Why url cannot be fetched with these settings; empty when it can.
    // Every refusal lives here, so that a prefetch is refused exactly as
    // HTTPGet would refuse the same request.
    QString prepare(const QString& url, const QStringList& proxySettings, QUrl& target,
                    QNetworkProxy& proxy) const;
    QNetworkReply* start(const QUrl& target, const QNetworkProxy& proxy, const QDateTime& since);
    // The prefetched transfer of this request, or a new one.
    QNetworkReply* adopt(const QUrl& target, const QNetworkProxy& proxy, const QDateTime& since);

    void startAfresh();

    std::unique_ptr<QNetworkAccessManager> m_manager;
    // Managers given up after a fault; one may still be busy with a server
    // that keeps sending, so they go only with the session.
    std::vector<std::unique_ptr<QNetworkAccessManager>> m_retired;
    qint64 m_maxBytes = DefaultMaxBytes;
    QString m_lastError;
    // This session's own SOCKS credentials.
    QString m_isolationUser;
    QString m_isolationPassword;
    // Declared after the managers, so they go before them.
    std::vector<std::unique_ptr<Prefetched>> m_prefetched;
};

// A single download in a session of its own, for callers outside an update
// run (the URL list manager).
int HTTPGet(FrontEnd* owner, const QString& url, PageLines& lines, const QStringList& proxySettings,
            const bool* cancel, int timeoutSeconds, QDateTime& lastModified);
