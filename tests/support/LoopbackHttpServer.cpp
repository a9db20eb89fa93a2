#include "support/LoopbackHttpServer.h"

#include <QTcpSocket>
#include <QTimer>
#include <optional>

namespace {

constexpr qint64 streamBacklog = 256 * 1024; // how far an endless reply may run ahead of the client

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 201: return "Created";
    case 204: return "No Content";
    case 307: return "Temporary Redirect";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 404: return "Not Found";
    case 429: return "Too Many Requests";
    case 500: return "Internal Server Error";
    case 502: return "Bad Gateway";
    case 504: return "Gateway Timeout";
    default: return "Status";
    }
}

bool bodyAllowed(int status)
{
    return status >= 200 && status != 204 && status != 304;
}

// Takes one complete request off the front of the buffer; none while it is still incomplete.
std::optional<LoopbackHttpServer::Request> takeRequest(QByteArray &buffer, bool &malformed)
{
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return std::nullopt;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() != 3) {
        malformed = true;
        return std::nullopt;
    }
    LoopbackHttpServer::Request request{requestLine[0], requestLine[1], {}, {}};
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.append({lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
    }
    const qsizetype bodyStart = headEnd + 4;
    const qsizetype length = request.header("Content-Length").toLongLong();
    if (buffer.size() < bodyStart + length)
        return std::nullopt;
    request.body = buffer.mid(bodyStart, length);
    buffer.remove(0, bodyStart + length);
    return request;
}

} // namespace

struct LoopbackHttpServer::Connection
{
    QByteArray buffer;
    bool busy = false; // answering; later requests wait in the buffer
    QByteArray streamChunk;
};

bool LoopbackHttpServer::Request::hasHeader(QByteArrayView name) const
{
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

QByteArray LoopbackHttpServer::Request::header(QByteArrayView name) const
{
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

LoopbackHttpServer::Reply LoopbackHttpServer::Reply::json(int status, QByteArray body)
{
    return Reply{status, {{"Content-Type", "application/json"}}, std::move(body)};
}

LoopbackHttpServer::Reply LoopbackHttpServer::Reply::text(int status, QByteArray body, QByteArray contentType)
{
    return Reply{status, {{"Content-Type", std::move(contentType)}}, std::move(body)};
}

LoopbackHttpServer::Reply LoopbackHttpServer::Reply::drop()
{
    Reply reply;
    reply.mode = Mode::Drop;
    return reply;
}

LoopbackHttpServer::Reply LoopbackHttpServer::Reply::endless(int status, QByteArray chunk,
                                                             std::chrono::milliseconds interval)
{
    Reply reply{status, {}, std::move(chunk)};
    reply.mode = Mode::Endless;
    reply.chunkInterval = interval;
    return reply;
}

LoopbackHttpServer::LoopbackHttpServer(QObject *parent)
    : QObject(parent)
    , m_fallback(Reply::json(500, R"({"error":"unscripted","message":"No reply was scripted"})"))
{
    connect(&m_server, &QTcpServer::newConnection, this, &LoopbackHttpServer::accept);
    if (!m_server.listen(QHostAddress::LocalHost, 0))
        qFatal("LoopbackHttpServer: cannot listen: %s", qPrintable(m_server.errorString()));
}

LoopbackHttpServer::~LoopbackHttpServer()
{
    for (const auto &entry : m_connections) {
        entry.first->disconnect(this);
        entry.first->abort();
    }
}

QUrl LoopbackHttpServer::url() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()));
}

void LoopbackHttpServer::enqueue(Reply reply)
{
    m_queue.append(std::move(reply));
}

void LoopbackHttpServer::setFallbackReply(Reply reply)
{
    m_fallback = std::move(reply);
}

void LoopbackHttpServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        ++m_connectionCount;
        m_connections[socket] = std::make_unique<Connection>();
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { process(socket); });
        connect(socket, &QTcpSocket::bytesWritten, this, [this, socket] { stream(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_connections.erase(socket);
            socket->deleteLater();
        });
    }
}

void LoopbackHttpServer::process(QTcpSocket *socket)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end())
        return;
    Connection &connection = *found->second;
    connection.buffer += socket->readAll();
    while (!connection.busy) {
        bool malformed = false;
        auto request = takeRequest(connection.buffer, malformed);
        if (malformed)
            socket->disconnectFromHost();
        if (!request)
            return;
        m_requests.append(std::move(*request));
        connection.busy = true;
        const Reply reply = m_queue.isEmpty() ? m_fallback : m_queue.takeFirst();
        Q_EMIT requestReceived();
        if (reply.delay.count() > 0) {
            QTimer::singleShot(reply.delay, socket, [this, socket, reply] { answer(socket, reply); });
            return;
        }
        answer(socket, reply);
    }
}

void LoopbackHttpServer::answer(QTcpSocket *socket, const Reply &reply)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end())
        return;
    Connection &connection = *found->second;
    if (reply.mode == Reply::Mode::Drop) {
        socket->disconnectFromHost();
        return;
    }

    QByteArray head = "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonPhrase(reply.status) + "\r\n";
    bool hasLength = false;
    for (const auto &[name, value] : reply.headers) {
        head += name + ": " + value + "\r\n";
        hasLength = hasLength || name.compare("Content-Length", Qt::CaseInsensitive) == 0;
    }
    if (reply.mode == Reply::Mode::Endless) {
        socket->write(head + "Connection: close\r\n\r\n");
        connection.streamChunk = reply.body.isEmpty() ? QByteArray(64 * 1024, 'x') : reply.body;
        if (reply.chunkInterval.count() == 0) {
            stream(socket);
            return;
        }
        auto *timer = new QTimer(socket);
        connect(timer, &QTimer::timeout, socket, [socket, chunk = connection.streamChunk] { socket->write(chunk); });
        timer->start(reply.chunkInterval);
        connection.streamChunk.clear(); // paced by the timer, not by bytesWritten
        return;
    }

    const bool withBody = bodyAllowed(reply.status);
    if (withBody && !hasLength)
        head += "Content-Length: " + QByteArray::number(reply.body.size()) + "\r\n";
    socket->write(head + "\r\n" + (withBody ? reply.body : QByteArray()));
    connection.busy = false;
    if (!connection.buffer.isEmpty())
        QMetaObject::invokeMethod(this, [this, socket] { process(socket); }, Qt::QueuedConnection);
}

void LoopbackHttpServer::stream(QTcpSocket *socket)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end() || found->second->streamChunk.isEmpty())
        return;
    while (socket->state() == QAbstractSocket::ConnectedState && socket->bytesToWrite() < streamBacklog)
        socket->write(found->second->streamChunk);
}
