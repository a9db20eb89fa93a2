#include "service/KeychainStore.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/SettingsStore.h"
#include "support/LoopbackHttpServer.h"
#include "support/MemoryKeychain.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QCoro/QCoroTask>

using namespace std::chrono_literals;
using Kind = TranslationError::Kind;
using Reply = LoopbackHttpServer::Reply;

namespace {

const QString networkMessage = QStringLiteral("Translation failed \u2014 no network connection.");
const QString tooLongMessage = QStringLiteral("Text too long (max 5,000 characters)");
const QString timeoutMessage = QStringLiteral("Translation timed out");

Reply translationReply(QByteArray extraMembers = {})
{
    return Reply::json(200, R"({"translated_text":"Hallo","characters_used":5)" + extraMembers + '}');
}

TranslationResult translateWith(TranslationService &service, const QString &text, const QString &language = "de")
{
    return QCoro::waitFor(service.translate(text, language));
}

void setServiceUrl(const QString &url)
{
    qputenv("PARLANTO_SERVICE_URL", url.toUtf8());
}

} // namespace

Q_DECLARE_METATYPE(TranslationError::Kind)

class TranslationServiceTest : public QObject
{
    Q_OBJECT

private:
    TranslationResult translate(const QString &text, const QString &language = "de")
    {
        return translateWith(*m_service, text, language);
    }
    void expectError(const TranslationResult &result, Kind kind, const QString &message)
    {
        QVERIFY2(!result.isOk(), "expected an error, got a translation");
        QCOMPARE(result.error().kind(), kind);
        QCOMPARE(result.error().userMessage(), message);
    }

    QTemporaryDir m_dir;
    std::unique_ptr<LoopbackHttpServer> m_server;
    std::unique_ptr<TranslationService> m_service;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        SettingsStore::setShared(std::make_unique<JsonSettingsStore>(m_dir.filePath("settings.json")));
        KeychainStore::setSharedBackend(std::make_unique<MemoryKeychain>());
    }

    // Every case gets its own server and service, so no connection is reused across cases.
    void init()
    {
        m_server = std::make_unique<LoopbackHttpServer>();
        m_service = std::make_unique<TranslationService>();
        setServiceUrl(m_server->url().toString());
        KeychainStore::shared().remove(KeychainStore::sessionTokenKey);
    }

    void cleanup()
    {
        m_service.reset();
        m_server.reset();
    }

    void sendsOneWellFormedRequest()
    {
        KeychainStore::shared().save(KeychainStore::sessionTokenKey, "s3cr3t-token");
        setServiceUrl(m_server->url().toString() + "/api/v1/"); // a path and a trailing slash
        m_server->enqueue(Reply::json(200, R"({"translated_text":"こんにちは、世界 👋🏽","characters_used":14})"));

        const QString text = "  Grüße, Welt! 👋🏽\n";
        const TranslationResult result = translate(text, "ja");
        QVERIFY(result.isOk());
        QCOMPARE(result.value().translatedText, QStringLiteral("こんにちは、世界 👋🏽"));
        QCOMPARE(result.value().charactersUsed, 14);
        QCOMPARE(result.value().remainingQuota, std::nullopt);
        QCOMPARE(m_server->requests().size(), 1);
        const auto &request = m_server->requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.path, "/api/v1/translate");
        QCOMPARE(request.header("content-type"), "application/json");
        QCOMPARE(request.header("AUTHORIZATION"), "Bearer s3cr3t-token");
        // The text goes out unchanged, not trimmed.
        QCOMPARE(QJsonDocument::fromJson(request.body).object(),
                 (QJsonObject{{"mode", "translate"}, {"target_language", "ja"}, {"text", text}}));
    }

    void authorizationFollowsTheStoredToken()
    {
        const auto authorizationSent = [this](const std::optional<QString> &token) -> QByteArray {
            if (token)
                KeychainStore::shared().save(KeychainStore::sessionTokenKey, *token);
            else
                KeychainStore::shared().remove(KeychainStore::sessionTokenKey);
            m_server->enqueue(translationReply());
            const qsizetype before = m_server->requests().size();
            if (!translate("Hello").isOk() || m_server->requests().size() != before + 1)
                return "<no request>";
            const auto &request = m_server->requests().last();
            return request.hasHeader("Authorization") ? request.header("Authorization") : "<none>";
        };
        QCOMPARE(authorizationSent(std::nullopt), "<none>");
        QCOMPARE(authorizationSent(QString("")), "<none>");
        QCOMPARE(authorizationSent(QString("first")), "Bearer first");
        QCOMPARE(authorizationSent(QString("second")), "Bearer second"); // read afresh on every call
        QCOMPARE(authorizationSent(std::nullopt), "<none>");
    }

    void lengthIsCheckedBeforeSending()
    {
        const auto empty = translate("");
        expectError(empty, Kind::NetworkError, networkMessage);
        QCOMPARE(empty.error().underlyingError(), "empty");

        expectError(translate(QString("a").repeated(5001)), Kind::TextTooLong, tooLongMessage);
        expectError(translate(QString("👍🏽").repeated(5001)), Kind::TextTooLong, tooLongMessage);
        QCOMPARE(m_server->connectionCount(), 0);

        // Exactly 5000 user-perceived characters go out, however many code units they take.
        const QStringList atTheLimit{
            QString("a").repeated(5000),
            QString("👍🏽").repeated(5000),                     // emoji with a skin-tone modifier
            QString("a").repeated(4999) + "\U0001F469\U0001F3FD\u200D\U0001F4BB", // woman technologist
            QString("e\u0301").repeated(5000),                // base letter + combining accent
        };
        for (const QString &text : atTheLimit) {
            m_server->enqueue(translationReply());
            QVERIFY(translate(text).isOk());
            QCOMPARE(QJsonDocument::fromJson(m_server->requests().last().body)["text"].toString(), text);
        }
        QCOMPARE(m_server->requests().size(), atTheLimit.size());
    }

    void mapsEveryReply_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("message");
        auto row = [](const char *tag, int status, const QByteArray &body, Kind kind, const QString &message) {
            QTest::newRow(tag) << status << body << kind << message;
        };
        const QString validation = "Validation error", failedUnknown = "Translation failed: Unknown error",
                      tryAgain = "Translation failed, try again", tooMany = "Too many requests. Please wait a moment.";
        const QByteArray html = "<html><body><h1>Oops</h1></body></html>";

        row("400 validation, 'exceeds' in any case", 400, R"({"error":"validation_error","message":"Text EXCEEDS the Limit"})",
            Kind::TextTooLong, tooLongMessage);
        row("400 validation, '5,000'", 400, R"({"error":"validation_error","message":"At most 5,000 characters"})",
            Kind::TextTooLong, tooLongMessage);
        row("400 validation, no message", 400, R"({"error":"validation_error"})", Kind::ServerError, validation);
        row("400 validation, other message", 400, R"({"error":"validation_error","message":"Unknown target language"})",
            Kind::ServerError, "Unknown target language");
        row("400 other code with message", 400, R"({"error":"bad_input","message":"Header exceeds its size"})",
            Kind::ServerError, "Header exceeds its size");
        row("400 not JSON", 400, html, Kind::ServerError, validation);
        row("401", 401, R"({"error":"unauthorized"})", Kind::Unauthorized, "Your session has expired. Please sign in again.");
        row("429 quota", 429, R"({"error":"quota_exceeded","upgrade_url":"https://example.com/up"})", Kind::QuotaExceeded,
            "You have used this month's translation quota.");
        row("429 other code", 429, R"({"error":"slow_down"})", Kind::RateLimited, tooMany);
        row("429 code in other case", 429, R"({"error":"QUOTA_EXCEEDED"})", Kind::RateLimited, tooMany);
        row("429 not JSON", 429, "slow down", Kind::RateLimited, tooMany);
        row("502", 502, html, Kind::Timeout, timeoutMessage);
        row("504", 504, {}, Kind::Timeout, timeoutMessage);
        row("500 with message", 500, R"({"error":"internal","message":"Engine unavailable"})", Kind::UnknownError,
            "Translation failed: Engine unavailable");
        row("500 without message", 500, R"({"error":"internal"})", Kind::UnknownError, failedUnknown);
        row("500 HTML", 500, html, Kind::UnknownError, failedUnknown);
        row("201 carrying a translation", 201, R"({"translated_text":"Hallo","characters_used":5})", Kind::UnknownError,
            failedUnknown);
        row("303 is not followed", 303, {}, Kind::UnknownError, failedUnknown);
        row("204", 204, {}, Kind::UnknownError, failedUnknown);
        row("200 lacking translated_text", 200, R"({"characters_used":5})", Kind::DecodingError, tryAgain);
        row("200 lacking characters_used", 200, R"({"translated_text":"Hallo"})", Kind::DecodingError, tryAgain);
        row("200 quota not a number", 200, R"({"translated_text":"Hallo","characters_used":5,"remaining_quota":"lots"})",
            Kind::DecodingError, tryAgain);
        row("200 malformed JSON", 200, "{\"translated_text\":\"Hal", Kind::DecodingError, tryAgain);
        row("200 HTML", 200, html, Kind::DecodingError, tryAgain);
        row("200 empty body", 200, {}, Kind::DecodingError, tryAgain);
    }

    void mapsEveryReply()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(Kind, kind);
        QFETCH(QString, message);
        m_server->enqueue(body.startsWith('{') ? Reply::json(status, body) : Reply::text(status, body));
        const TranslationResult result = translate("Hello");
        expectError(result, kind, message);
        if (kind == Kind::UnknownError)
            QCOMPARE(result.error().statusCode(), status);
        QCOMPARE(m_server->requests().size(), 1); // never retried
    }

    void remainingQuotaReachesAppState()
    {
        AppState &state = AppState::shared();
        state.setQuotaRemaining(77);
        QSignalSpy changes(&state, &AppState::quotaRemainingChanged);

        m_server->enqueue(translationReply());
        QCOMPARE(translate("Hello").value().remainingQuota, std::nullopt);
        m_server->enqueue(translationReply(R"(,"remaining_quota":null)"));
        QVERIFY(translate("Hello").isOk());
        QCOMPARE(state.quotaRemaining(), 77);
        QCOMPARE(changes.size(), 0);

        m_server->enqueue(translationReply(R"(,"remaining_quota":4321)"));
        QCOMPARE(translate("Hello").value().remainingQuota, 4321);
        QCOMPARE(state.quotaRemaining(), 4321);
        m_server->enqueue(translationReply(R"(,"remaining_quota":0)"));
        QCOMPARE(translate("Hello").value().remainingQuota, 0);
        QCOMPARE(state.quotaRemaining(), 0);
        QCOMPARE(changes.size(), 2);

        m_server->enqueue(Reply::json(429, R"({"error":"quota_exceeded","remaining_quota":5})"));
        QVERIFY(!translate("Hello").isOk());
        QCOMPARE(state.quotaRemaining(), 0); // only a translation reports the quota
    }

    // A caller on another thread gets its result there; the quota still lands on the main thread.
    void worksFromAWorkerThread()
    {
        AppState::shared().setQuotaRemaining(1);
        m_server->enqueue(translationReply(R"(,"remaining_quota":999)"));

        QThread *updatedOn = nullptr;
        QObject probe;
        connect(&AppState::shared(), &AppState::quotaRemainingChanged, &probe,
                [&] { updatedOn = QThread::currentThread(); }, Qt::DirectConnection);
        QThread worker;
        worker.start();
        QObject context;
        context.moveToThread(&worker);
        std::optional<TranslationResult> result;
        bool onWorker = false;
        QEventLoop loop;
        QMetaObject::invokeMethod(&context, [&] {
            QCoro::connect(m_service->translate("Hello", "fr"), &context, [&](TranslationResult value) {
                onWorker = QThread::currentThread() == &worker;
                result = std::move(value);
                QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
            });
        });
        loop.exec();
        worker.quit();
        worker.wait();

        QVERIFY(onWorker);
        QVERIFY(result && result->isOk());
        QCOMPARE(result->value().translatedText, "Hallo");
        // The update was queued to this thread before the result was, so it has landed.
        QCOMPARE(AppState::shared().quotaRemaining(), 999);
        QCOMPARE(updatedOn, QThread::currentThread());
    }

    void timeOuts()
    {
        // Nothing arrives for longer than the inactivity limit.
        TranslationService quiet({300ms, 60s});
        Reply late = translationReply();
        late.delay = 5s;
        m_server->enqueue(late);
        expectError(translateWith(quiet, "Hello"), Kind::Timeout, timeoutMessage);

        // Bytes keep trickling in, but the whole exchange takes longer than allowed.
        TranslationService hurried({60s, 500ms});
        m_server->enqueue(Reply::endless(200, " ", 50ms));
        expectError(translateWith(hurried, "Hello"), Kind::Timeout, timeoutMessage);
    }

    void networkFailures()
    {
        // Qt itself resends once when a connection closes before any reply, so every attempt drops.
        m_server->setFallbackReply(Reply::drop());
        const auto dropped = translate("Hello");
        expectError(dropped, Kind::NetworkError, networkMessage);
        QVERIFY(!dropped.error().underlyingError().isEmpty());
        QVERIFY(!m_server->requests().isEmpty());

        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const quint16 port = closed.serverPort();
        closed.close();
        setServiceUrl(QStringLiteral("http://127.0.0.1:%1").arg(port));
        expectError(translate("Hello"), Kind::NetworkError, networkMessage);
    }

    void oversizedBodiesAreCut()
    {
        // Just under 1 MiB is still a translation.
        const QString big(1000 * 1000, u'x');
        m_server->enqueue(Reply::json(200, R"({"translated_text":")" + big.toLatin1() + R"(","characters_used":1})"));
        QCOMPARE(translate("Hello").value().translatedText.size(), big.size());

        // A reply that never ends is dropped at the cap instead of filling memory until the deadline.
        m_server->enqueue(Reply::endless(200, QByteArray(64 * 1024, ' ')));
        expectError(translate("Hello"), Kind::DecodingError, "Translation failed, try again");

        // The status survives a body that is too large.
        m_server->enqueue(Reply::text(500, QByteArray(2 * 1024 * 1024, '{')));
        const auto error = translate("Hello");
        expectError(error, Kind::UnknownError, "Translation failed: Unknown error");
        QCOMPARE(error.error().statusCode(), 500);
    }

    void redirectsAreCheckedHopByHop()
    {
        KeychainStore::shared().save(KeychainStore::sessionTokenKey, "tok");
        const auto redirectTo = [](const QString &location, int status = 307) {
            Reply reply = Reply::json(status, {});
            reply.headers.append(std::pair<QByteArray, QByteArray>("Location", location.toUtf8()));
            return reply;
        };

        m_server->enqueue(redirectTo("http://example.com/translate"));
        const auto refused = translate("Hello");
        expectError(refused, Kind::NetworkError, networkMessage);
        QVERIFY2(refused.error().underlyingError().contains("redirect"), qPrintable(refused.error().underlyingError()));

        // Within the service the same request moves on, token included.
        m_server->enqueue(redirectTo("/v2/translate", 308));
        m_server->enqueue(translationReply());
        QVERIFY(translate("Hello").isOk());
        const auto &moved = m_server->requests().last();
        QCOMPARE(moved.path, "/v2/translate");
        QCOMPARE(moved.method, "POST");
        QCOMPARE(moved.body, m_server->requests().first().body);
        QCOMPARE(moved.header("Authorization"), "Bearer tok");

        // Another origin gets the request but not the token.
        LoopbackHttpServer other;
        m_server->enqueue(redirectTo(other.url().toString() + "/translate"));
        other.enqueue(translationReply());
        QVERIFY(translate("Hello").isOk());
        QCOMPARE(other.requests().size(), 1);
        QVERIFY(!other.requests().first().hasHeader("Authorization"));
        QCOMPARE(other.requests().first().body, m_server->requests().first().body);

        // A redirect loop ends.
        const qsizetype before = m_server->requests().size();
        m_server->setFallbackReply(redirectTo("/again"));
        expectError(translate("Hello"), Kind::NetworkError, networkMessage);
        QCOMPARE(m_server->requests().size(), before + 1 + HttpJsonClient::maxRedirects);
    }

    // Only https, or plain http to a loopback address; a refused URL is never connected to.
    void serviceUrlRule_data()
    {
        QTest::addColumn<QString>("baseUrl");
        QTest::addColumn<QString>("message");  // empty: permitted
        const QString invalid = "Invalid URL";
        QTest::newRow("https") << "https://api.example.com/v1" << QString();
        QTest::newRow("https loopback") << "https://127.0.0.1:8443" << QString();
        QTest::newRow("http 127.0.0.1") << "http://127.0.0.1:8080" << QString();
        QTest::newRow("http 127.x.y.z") << "http://127.45.6.7" << QString();
        QTest::newRow("http ::1") << "http://[::1]:5000/x" << QString();
        QTest::newRow("http localhost") << "http://LocalHost:5000" << QString();
        QTest::newRow("empty") << QString() << "No translation service is configured.";
        QTest::newRow("plain http to another host") << "http://example.com" << invalid;
        QTest::newRow("plain http to a private address") << "http://192.168.1.10:8080" << invalid;
        QTest::newRow("http lookalike host") << "http://localhost.example.com" << invalid;
        QTest::newRow("http 128.0.0.1") << "http://128.0.0.1" << invalid;
        QTest::newRow("http any address") << "http://0.0.0.0" << invalid;
        QTest::newRow("other scheme") << "ftp://127.0.0.1/" << invalid;
        QTest::newRow("file") << "file:///tmp/x" << invalid;
        QTest::newRow("no host") << "https://" << invalid;
        QTest::newRow("not a URL") << "service.example.com" << invalid;
        QTest::newRow("with a query") << "https://example.com/api?key=1" << invalid;
    }

    void serviceUrlRule()
    {
        QFETCH(QString, baseUrl);
        QFETCH(QString, message);
        if (message.isEmpty()) {
            QVERIFY(HttpJsonClient::isPermittedUrl(QUrl(baseUrl)));
            return;
        }
        setServiceUrl(baseUrl);
        expectError(translate("Hello"), Kind::ServerError, message);
        QCOMPARE(m_server->connectionCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TranslationServiceTest)
#include "tst_translationservice.moc"
