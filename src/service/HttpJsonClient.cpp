#include "service/HttpJsonClient.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QScopeGuard>
#include <QTimer>
#include <QCoro/QCoroNetworkReply>

namespace {

// Errors that mean the exchange itself broke (connection, DNS, TLS, proxy), as opposed to the
// ones Qt derives from an HTTP status that did arrive.
bool isTransportError(QNetworkReply::NetworkError error)
{
    const int code = error;
    return (code >= 1 && code <= 99) || (code >= 101 && code <= 199);
}

using Transport = HttpReplyResult::Transport;

HttpReplyResult replyResult(Transport transport, QString why, int status = 0)
{
    HttpReplyResult result;
    result.transport = transport;
    result.errorString = std::move(why);
    result.status = status;
    return result;
}

bool sameOrigin(const QUrl &a, const QUrl &b)
{
    return a.scheme() == b.scheme() && a.host() == b.host() && a.port(-1) == b.port(-1);
}

// One request and its reply, without following redirects.
struct Exchange
{
    HttpReplyResult result;
    QUrl location;        // where a 307/308 points, resolved
    bool aborted = false; // by us or by Qt's inactivity timer
};

QCoro::Task<Exchange> exchange(std::shared_ptr<QNetworkAccessManager> manager, QNetworkRequest request,
                               QByteArray requestBody, qint64 cap, QDeadlineTimer deadline)
{
    // Everything below lives in this coroutine's frame; the guard ends every connection when
    // the frame goes, and aborts are queued so that the reply never finishes (and resumes us)
    // from inside one of our own handlers.
    enum class Abort { None, Deadline, TooLarge } abortReason = Abort::None;
    QByteArray body;
    QObject guard;
    QNetworkReply *reply = manager->post(request, requestBody);
    const auto release = qScopeGuard([reply = QPointer(reply)] {
        if (reply)
            reply->deleteLater();
    });
    const auto abortLater = [&](Abort reason) {
        if (abortReason != Abort::None)
            return;
        abortReason = reason;
        QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
    };

    QObject::connect(reply, &QNetworkReply::metaDataChanged, &guard, [&] {
        if (reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > cap)
            abortLater(Abort::TooLarge);
    });
    QObject::connect(reply, &QIODevice::readyRead, &guard, [&] {
        const QByteArray chunk = reply->readAll(); // always drained, so nothing piles up in Qt
        if (abortReason != Abort::None)
            return;
        if (body.size() + chunk.size() > cap) {
            body.clear();
            abortLater(Abort::TooLarge);
            return;
        }
        body += chunk;
    });
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &guard, [&] { abortLater(Abort::Deadline); });
    timer.start(std::chrono::ceil<std::chrono::milliseconds>(deadline.remainingTimeAsDuration()));

    co_await reply;

    Exchange done;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QNetworkReply::NetworkError error = reply->error();
    // Besides our own aborts, only Qt's inactivity timer cancels a reply.
    const bool cancelled = error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError;
    done.aborted = abortReason != Abort::None || cancelled;
    switch (abortReason) {
    case Abort::Deadline:
        done.result = replyResult(Transport::TimedOut, QStringLiteral("The request took too long"), status);
        co_return done;
    case Abort::TooLarge: // a status that arrived still counts; the body does not
        done.result = replyResult(status != 0 ? Transport::Ok : Transport::NetworkError,
                                  QStringLiteral("The reply is too large"), status);
        done.result.bodyTooLarge = true;
        co_return done;
    case Abort::None:
        break;
    }
    if (cancelled) {
        done.result = replyResult(Transport::TimedOut, reply->errorString(), status);
    } else if (isTransportError(error) || (error != QNetworkReply::NoError && status == 0)) {
        done.result = replyResult(Transport::NetworkError, reply->errorString(), status);
    } else {
        body += reply->readAll();
        done.result.status = status;
        if (body.size() > cap)
            done.result.bodyTooLarge = true;
        else
            done.result.body = std::move(body);
        const QByteArray location = reply->rawHeader("Location");
        if ((status == 307 || status == 308) && !location.isEmpty())
            done.location = request.url().resolved(QUrl::fromEncoded(location));
    }
    co_return done;
}

// Requests end inside Qt's signal handlers, so a manager is never deleted on the spot.
std::shared_ptr<QNetworkAccessManager> newManager()
{
    return {new QNetworkAccessManager, [](QNetworkAccessManager *manager) { manager->deleteLater(); }};
}

} // namespace

HttpJsonClient::HttpJsonClient(Limits limits)
    : m_limits(limits)
    , m_manager(newManager())
{
}

HttpJsonClient::~HttpJsonClient() = default;

bool HttpJsonClient::isPermittedUrl(const QUrl &url)
{
    if (!url.isValid() || url.host().isEmpty())
        return false;
    const QString scheme = url.scheme().toLower();
    if (scheme == u"https")
        return true;
    if (scheme != u"http")
        return false;
    const QString host = url.host().toLower();
    if (host == u"localhost")
        return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

QCoro::Task<HttpReplyResult> HttpJsonClient::post(QUrl url, HttpHeaders headers, QByteArray jsonBody)
{
    if (!isPermittedUrl(url))
        co_return replyResult(Transport::NetworkError,
                              QStringLiteral("The URL is not allowed: %1").arg(url.toDisplayString()));

    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    request.setTransferTimeout(static_cast<int>(m_limits.inactivity.count()));
    // Redirects are followed here, not by Qt, so that every hop is checked before it is taken.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    const QDeadlineTimer deadline(m_limits.overall);

    for (int redirects = 0;; ++redirects) {
        const std::shared_ptr<QNetworkAccessManager> manager = m_manager;
        const Exchange done = co_await exchange(manager, request, jsonBody, m_limits.maxBodyBytes, deadline);
        // After an aborted reply Qt 6.4 sometimes hands the next request to the connection it
        // is tearing down, where it is lost until the inactivity limit. Later requests
        // therefore get fresh connections; requests still running keep the old manager.
        if (done.aborted && m_manager == manager)
            m_manager = newManager();
        if (done.location.isEmpty())
            co_return done.result;

        const QUrl from = request.url();
        const QUrl &to = done.location;
        if (redirects == maxRedirects)
            co_return replyResult(Transport::NetworkError, QStringLiteral("Too many redirects"));
        if (!isPermittedUrl(to) || (from.scheme() == u"https" && to.scheme() != u"https"))
            co_return replyResult(Transport::NetworkError,
                                  QStringLiteral("Refused a redirect to a less safe URL"));
        if (!sameOrigin(from, to))
            request.setRawHeader("Authorization", QByteArray()); // credentials stay with their origin
        request.setUrl(to);
    }
}
