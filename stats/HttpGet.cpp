#include "HttpGet.h"

#include "FrontEnd.h"
#include "TextFile.h"

#include <QEventLoop>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRandomGenerator>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <array>
#include <memory>

namespace {

// How often the cancel flag is looked at: often enough that a click on
// Cancel feels immediate, rarely enough to cost nothing.
constexpr int CancelPollMs = 50;
// QTimer counts in int milliseconds.
constexpr int MaxTimeoutSeconds = 24 * 3600;

// Why the fetch stopped the transfer itself.
enum class Stop { None, Cancelled, TimedOut, TooBig, ErrorPageFull };

int httpStatus(const QNetworkReply& reply) {
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

// Transport failures, sorted by what the engine should do next: "no answer"
// lets an unattended run go on to the next pinger; a pinger that refused or
// dropped the connection said so at once, and that is reported as it is.
int codeForError(QNetworkReply::NetworkError error) {
    switch (error) {
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::TimeoutError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::ProxyNotFoundError:
    case QNetworkReply::ProxyTimeoutError:
    // A SOCKS proxy (Tor) that could not reach the pinger says so this way.
    case QNetworkReply::UnknownProxyError:
        return HttpCode::TimedOut;
    case QNetworkReply::ProxyAuthenticationRequiredError:
    case QNetworkReply::ProtocolUnknownError:
        return HttpCode::LibraryError;
    default:
        return HttpCode::TransferError;
    }
}

// 128 random bits, as text.
QString randomWord() {
    std::array<quint32, 4> words{};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    QString text;
    for (quint32 word : words)
        text += QStringLiteral("%1").arg(word, 8, 16, QLatin1Char('0'));
    return text;
}

bool isOnion(const QString& host) {
    QString name = host.toLower();
    while (name.endsWith(u'.'))
        name.chop(1);
    return name.endsWith(QStringLiteral(".onion"));
}

} // namespace

struct HttpSession::Prefetched {
    QUrl target;
    QNetworkProxy proxy;
    QDateTime since;
    std::unique_ptr<QNetworkReply> reply;
};

HttpSession::HttpSession() : m_isolationUser(randomWord()), m_isolationPassword(randomWord()) {
    startAfresh();
}

void HttpSession::startAfresh() {
    if (m_manager)
        m_retired.push_back(std::move(m_manager));
    m_manager = std::make_unique<QNetworkAccessManager>();
    // Never the desktop's or the environment's proxy: a Tor user's traffic
    // must go exactly where the chosen proxy setting says.
    m_manager->setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
}

HttpSession::~HttpSession() {
    dropPrefetched();
}

bool HttpSession::proxyFromSettings(const QStringList& settings, QNetworkProxy& proxy,
                                    QString* error) {
    const auto failWith = [&](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    QString kind;
    QString host;
    QString portText;
    QString user;
    QString password;
    bool any = false;
    for (const QString& line : settings) {
        if (line.trimmed().isEmpty())
            continue;
        const qsizetype equals = line.indexOf(u'=');
        // The line is not echoed: it might be a mangled password.
        if (equals <= 0)
            return failWith(QStringLiteral("A proxy setting has no name"));
        const QString name = line.left(equals).trimmed().toLower();
        const QString value = line.mid(equals + 1);
        any = true;
        if (name == u"kind")
            kind = value.trimmed().toLower();
        else if (name == u"host")
            host = value.trimmed();
        else if (name == u"port")
            portText = value.trimmed();
        else if (name == u"user")
            user = value;
        else if (name == u"password")
            password = value;
        // Other names are for other tools of the suite.
    }
    if (!any) {
        proxy = QNetworkProxy(QNetworkProxy::NoProxy);
        return true;
    }

    QNetworkProxy::ProxyType type;
    if (kind == u"http")
        type = QNetworkProxy::HttpProxy;
    else if (kind == u"socks5")
        type = QNetworkProxy::Socks5Proxy;
    else
        return failWith(QStringLiteral("Unknown proxy kind \"%1\"").arg(kind));
    if (host.isEmpty())
        return failWith(QStringLiteral("The proxy has no host"));
    bool portOk = false;
    const int port = portText.toInt(&portOk);
    if (!portOk || port <= 0 || port > 65535)
        return failWith(QStringLiteral("The proxy port \"%1\" is not usable").arg(portText));

    proxy = QNetworkProxy(type, host, quint16(port), user, password);
    // Host names go to the proxy unresolved, so a Tor user's pinger lookups
    // never reach the local resolver.
    proxy.setCapabilities(proxy.capabilities() | QNetworkProxy::HostNameLookupCapability);
    return true;
}

int HttpSession::HTTPGet(FrontEnd* owner, const QString& url, PageLines& lines,
                         const QStringList& proxySettings, const bool* cancel, int timeoutSeconds,
                         QDateTime& lastModified) {
    lines.clear();
    const QDateTime sentDate = lastModified;
    lastModified = QDateTime();
    m_lastError.clear();
    const auto fail = [this](int code, const QString& why) {
        m_lastError = why;
        return code;
    };

    QUrl target;
    QNetworkProxy proxy;
    const QString refused = prepare(url, proxySettings, target, proxy);
    if (!refused.isEmpty())
        return fail(HttpCode::LibraryError, refused);
    if (cancel && *cancel)
        return fail(HttpCode::TransferError, QStringLiteral("Cancelled"));
    if (timeoutSeconds <= 0)
        timeoutSeconds = DefaultTimeoutSeconds;
    timeoutSeconds = qMin(timeoutSeconds, MaxTimeoutSeconds);

    if (owner)
        owner->setProgress(0);
    const std::unique_ptr<QNetworkReply> reply(adopt(target, proxy, sentDate));
    QEventLoop loop;
    QByteArray body;
    Stop stop = Stop::None;
    int shownPercent = 0;

    const auto halt = [&](Stop why) {
        if (stop != Stop::None)
            return;
        stop = why;
        reply->abort();
    };
    // Takes what has arrived, never more than one byte past the cap, so an
    // endless body costs no more memory than the cap allows.
    const auto take = [&] {
        if (stop != Stop::None)
            return;
        const bool errorPage = httpStatus(*reply) >= 400;
        const qint64 cap = errorPage ? qMin(ErrorPageMaxBytes, m_maxBytes) : m_maxBytes;
        // Read straight into the body: asked for more than it holds, a
        // reply makes a buffer of the size asked for.
        const qsizetype held = body.size();
        const qint64 want = qMin(reply->bytesAvailable(), cap + 1 - held);
        if (want > 0) {
            body.resize(held + want);
            body.resize(held + qMax(reply->read(body.data() + held, want), qint64(0)));
        }
        if (body.size() <= cap)
            return;
        if (errorPage) {
            // Enough to show; the rest of an error page does not matter.
            body.truncate(cap);
            halt(Stop::ErrorPageFull);
        } else {
            halt(Stop::TooBig);
        }
    };

    const auto checkLength = [&] {
        const int status = httpStatus(*reply);
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (status >= 200 && status < 300 && length.isValid() && length.toLongLong() > m_maxBytes)
            halt(Stop::TooBig);
    };
    QObject::connect(reply.get(), &QNetworkReply::readyRead, &loop, take);
    QObject::connect(reply.get(), &QNetworkReply::metaDataChanged, &loop, checkLength);
    // A prefetched transfer may have its headers and part of its body already.
    checkLength();
    take();
    QObject::connect(
        reply.get(), &QNetworkReply::downloadProgress, &loop, [&](qint64 received, qint64 total) {
            if (!owner || total <= 0)
                return;
            const int percent = int(qBound(qint64(0), received * 100 / total, qint64(100)));
            if (percent > shownPercent) {
                shownPercent = percent;
                owner->setProgress(percent);
            }
        });
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);

    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, &loop, [&] { halt(Stop::TimedOut); });
    deadline.start(timeoutSeconds * 1000);
    QTimer cancelWatch;
    if (cancel) {
        QObject::connect(&cancelWatch, &QTimer::timeout, &loop, [&] {
            if (*cancel)
                halt(Stop::Cancelled);
        });
        cancelWatch.start(CancelPollMs);
    }

    if (!reply->isFinished())
        loop.exec();
    // The loop also ends when the application quits under it; a transfer
    // still running then must not pass for a complete page.
    if (!reply->isFinished())
        halt(Stop::Cancelled);
    deadline.stop();
    cancelWatch.stop();
    take();
    // A connection that failed, or that a stopped transfer left behind, is
    // not trusted with the next page.
    if (stop != Stop::None || (reply->error() != QNetworkReply::NoError && httpStatus(*reply) == 0))
        startAfresh();

    switch (stop) {
    case Stop::Cancelled:
        return fail(HttpCode::TransferError, QStringLiteral("Cancelled"));
    case Stop::TimedOut:
        return fail(HttpCode::TimedOut,
                    QStringLiteral("No complete answer within %1 seconds").arg(timeoutSeconds));
    case Stop::TooBig:
        return fail(HttpCode::TransferError,
                    QStringLiteral("The page is larger than %1 bytes").arg(m_maxBytes));
    case Stop::ErrorPageFull:
    case Stop::None:
        break;
    }

    const QNetworkReply::NetworkError error = reply->error();
    const int status = httpStatus(*reply);
    const QString reason =
        reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString().trimmed();
    // Checked before the status: an HTTP proxy refusing the credentials
    // answers 407, which is a settings problem, not the pinger's error.
    if (error == QNetworkReply::ProxyAuthenticationRequiredError)
        return fail(HttpCode::LibraryError, reply->errorString());
    if (status >= 400) {
        lines = PageLines(std::move(body));
        return fail(HttpCode::HttpError, QStringLiteral("HTTP %1 %2").arg(status).arg(reason));
    }
    if (error != QNetworkReply::NoError)
        return fail(codeForError(error), reply->errorString());

    const QDateTime pageDate = reply->header(QNetworkRequest::LastModifiedHeader).toDateTime();
    if (status == 304) {
        // Nothing new came; the copy the caller holds keeps its date unless
        // the server named one.
        lastModified = pageDate.isValid() ? pageDate : sentDate;
        if (owner)
            owner->setProgress(100);
        return HttpCode::NotModified;
    }
    // A connection dropped in the middle can end without an error when the
    // close wins the race with the reset; the announced length tells. (A
    // compressed body is counted before it is unpacked, so it cannot tell.)
    const QVariant announced = reply->header(QNetworkRequest::ContentLengthHeader);
    if (status >= 200 && status < 300 && announced.isValid() &&
        !reply->hasRawHeader("Content-Encoding") && body.size() < announced.toLongLong())
        return fail(codeForError(QNetworkReply::RemoteHostClosedError),
                    QStringLiteral("The connection closed after %1 of %2 bytes")
                        .arg(body.size())
                        .arg(announced.toLongLong()));
    if (status >= 200 && status < 300) {
        lines = PageLines(std::move(body));
        lastModified = pageDate;
        if (owner)
            owner->setProgress(100);
        return HttpCode::Ok;
    }
    // An answer that is neither the page nor an error: a redirect that was
    // not followed (no Location), or an informational status.
    lines = PageLines(body.left(qMin(ErrorPageMaxBytes, m_maxBytes)));
    return fail(HttpCode::HttpError, QStringLiteral("HTTP %1 %2").arg(status).arg(reason));
}

QString HttpSession::prepare(const QString& url, const QStringList& proxySettings, QUrl& target,
                             QNetworkProxy& proxy) const {
    target = QUrl(url.trimmed());
    if (!target.isValid() || target.host().isEmpty())
        return QStringLiteral("Not a usable URL: %1").arg(url);
    // The access manager would also read file: and other schemes; a stats
    // source must never make the program read local files.
    const QString scheme = target.scheme();
    if (scheme != u"http" && scheme != u"https")
        return QStringLiteral("Only http and https pages can be fetched: %1").arg(url);
    QString proxyError;
    if (!proxyFromSettings(proxySettings, proxy, &proxyError))
        return proxyError;
    const bool socks = proxy.type() == QNetworkProxy::Socks5Proxy;
    // Asked for directly, an onion name would go to the local resolver and
    // tell it which hidden service the user wants.
    if (!socks && isOnion(target.host()))
        return QStringLiteral("%1 is an onion address; it can only be reached through a "
                              "SOCKS5 proxy such as Tor")
            .arg(target.host());
    if (socks && proxy.user().isEmpty() && proxy.password().isEmpty()) {
        proxy.setUser(m_isolationUser);
        proxy.setPassword(m_isolationPassword);
    }
    return {};
}

QNetworkReply* HttpSession::start(const QUrl& target, const QNetworkProxy& proxy,
                                  const QDateTime& since) {
    // Changing the proxy only when it changes keeps the kept-alive
    // connections of the session.
    if (!(m_manager->proxy() == proxy))
        m_manager->setProxy(proxy);
    QNetworkRequest request(target);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(MaxRedirects);
    request.setHeader(QNetworkRequest::UserAgentHeader, QByteArray(RequestHeaders::UserAgent));
    request.setRawHeader("Accept-Language", RequestHeaders::AcceptLanguage);
    // Nothing a pinger sets is kept or sent back, so nothing links one
    // request to another.
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    if (since.isValid())
        request.setHeader(QNetworkRequest::IfModifiedSinceHeader, since);
    return m_manager->get(request);
}

QNetworkReply* HttpSession::adopt(const QUrl& target, const QNetworkProxy& proxy,
                                  const QDateTime& since) {
    const auto match = std::find_if(m_prefetched.begin(), m_prefetched.end(), [&](const auto& p) {
        return p->target == target && p->proxy == proxy && p->since == since;
    });
    if (match == m_prefetched.end())
        return start(target, proxy, since);
    QNetworkReply* reply = (*match)->reply.release();
    m_prefetched.erase(match);
    return reply;
}

void HttpSession::prefetch(const QString& url, const QStringList& proxySettings,
                           const QDateTime& lastModified) {
    auto entry = std::make_unique<Prefetched>();
    if (!prepare(url, proxySettings, entry->target, entry->proxy).isEmpty())
        return;
    entry->since = lastModified;
    entry->reply.reset(start(entry->target, entry->proxy, lastModified));
    // Nobody reads it yet: past the size cap it waits instead of filling
    // the memory.
    entry->reply->setReadBufferSize(m_maxBytes + 1);
    m_prefetched.push_back(std::move(entry));
}

void HttpSession::dropPrefetched() {
    std::erase_if(m_prefetched, [](const std::unique_ptr<Prefetched>& entry) {
        if (entry->reply->isFinished())
            return false;
        entry->reply->abort();
        return true;
    });
}

int HTTPGet(FrontEnd* owner, const QString& url, PageLines& lines, const QStringList& proxySettings,
            const bool* cancel, int timeoutSeconds, QDateTime& lastModified) {
    HttpSession session;
    return session.HTTPGet(owner, url, lines, proxySettings, cancel, timeoutSeconds, lastModified);
}
