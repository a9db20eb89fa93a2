#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>
#include <QCoro/QCoroTask>
#include <chrono>
#include <memory>
#include <utility>

class QNetworkAccessManager;

using HttpHeaders = QList<std::pair<QByteArray, QByteArray>>;

// What came back from one request.
struct HttpReplyResult
{
    enum class Transport {
        Ok,           // an HTTP response arrived (whatever its status)
        TimedOut,     // nothing for too long, or the whole exchange took too long
        NetworkError, // no usable response: refused, reset, DNS, TLS, refused redirect...
    };

    Transport transport = Transport::Ok;
    QString errorString; // Qt's description when the transport failed
    int status = 0;      // the HTTP status; 0 when no response arrived
    QByteArray body;     // empty when bodyTooLarge
    bool bodyTooLarge = false; // the body exceeded the cap and was dropped; status is kept

    bool isOk() const { return transport == Transport::Ok; }
};

// When a request gives up.
struct HttpLimits
{
    std::chrono::milliseconds inactivity{10'000}; // no bytes moving for this long
    std::chrono::milliseconds overall{12'000};    // the whole exchange
    qint64 maxBodyBytes = 1024 * 1024;            // larger bodies are cut off and dropped
};

// Sends JSON over HTTP(S) and waits for the whole answer without ever blocking: the transport
// that every web engine shares. Lives on the thread that created it and must be used there.
class HttpJsonClient
{
public:
    using Limits = HttpLimits;

    explicit HttpJsonClient(Limits limits = {});
    ~HttpJsonClient();

    static constexpr int maxRedirects = 5;

    // POSTs the body with "Content-Type: application/json" plus the given headers. 307 and 308
    // redirects are followed (the limits cover all hops) only to URLs that pass
    // isPermittedUrl() and never from https to http; "Authorization" is not sent to another
    // origin. Other 3xx replies are returned as they are.
    QCoro::Task<HttpReplyResult> post(QUrl url, HttpHeaders headers, QByteArray jsonBody);

    const Limits &limits() const { return m_limits; }

    // Only https:// may leave the machine; plain http:// is allowed for loopback hosts
    // (127.0.0.0/8, ::1, "localhost") so local services and tests work.
    static bool isPermittedUrl(const QUrl &url);

private:
    Limits m_limits;
    std::shared_ptr<QNetworkAccessManager> m_manager; // each request keeps its own alive
};
