#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>
#include <chrono>
#include <map>
#include <memory>
#include <utility>

class QTcpSocket;

// A real HTTP/1.1 server on 127.0.0.1 (ephemeral port) for tests. It records every request and
// answers each with the next scripted reply, or the fallback reply when none is left.
// Connections are kept alive between requests; request bodies need a Content-Length.
class LoopbackHttpServer : public QObject
{
    Q_OBJECT

public:
    using Headers = QList<std::pair<QByteArray, QByteArray>>;

    struct Request
    {
        QByteArray method;
        QByteArray path; // the request target as sent, query included
        Headers headers; // in arrival order, names as sent
        QByteArray body;

        bool hasHeader(QByteArrayView name) const;
        // The first value of a header, whatever the case of its name; empty when absent.
        QByteArray header(QByteArrayView name) const;
    };

    struct Reply
    {
        enum class Mode {
            Normal,  // status, headers, Content-Length, body
            Drop,    // close the connection without answering
            Endless, // headers, then `body` over and over until the client goes away
        };

        int status = 200;
        Headers headers; // a Content-Length given here is sent instead of the real one
        QByteArray body;
        std::chrono::milliseconds delay{0}; // wait this long before answering
        Mode mode = Mode::Normal;
        std::chrono::milliseconds chunkInterval{0}; // Endless: pause between repetitions

        static Reply json(int status, QByteArray body);
        static Reply text(int status, QByteArray body, QByteArray contentType = "text/html");
        static Reply drop();
        static Reply endless(int status, QByteArray chunk, std::chrono::milliseconds interval = {});
    };

    explicit LoopbackHttpServer(QObject *parent = nullptr);
    ~LoopbackHttpServer() override;

    // http://127.0.0.1:<port>
    QUrl url() const;

    void enqueue(Reply reply);
    // Drops the scripted replies not given yet.
    void clearQueue() { m_queue.clear(); }
    // Answers requests once the queue is empty (initially a 500 saying that nothing was scripted).
    void setFallbackReply(Reply reply);

    const QList<Request> &requests() const { return m_requests; }
    int connectionCount() const { return m_connectionCount; }

Q_SIGNALS:
    void requestReceived();

private:
    struct Connection;

    void accept();
    void process(QTcpSocket *socket);
    void answer(QTcpSocket *socket, const Reply &reply);
    void stream(QTcpSocket *socket);

    QTcpServer m_server;
    std::map<QTcpSocket *, std::unique_ptr<Connection>> m_connections;
    QList<Reply> m_queue;
    Reply m_fallback;
    QList<Request> m_requests;
    int m_connectionCount = 0;
};
