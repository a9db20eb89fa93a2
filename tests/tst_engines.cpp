// The engines behind TranslationService: which one is chosen, and each online engine against a
// real loopback server that speaks its provider's documented wire format.
#include "BuildConfig.h"
#include "service/EngineSettings.h"
#include "service/KeychainStore.h"
#include "service/OfflineEngine.h"
#include "service/OpenAiEngine.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "support/LoopbackHttpServer.h"
#include "support/MemoryKeychain.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QCoro/QCoroTask>

using namespace std::chrono_literals;
using Kind = TranslationError::Kind;
using Reply = LoopbackHttpServer::Reply;

namespace {

const QStringList environment{"PARLANTO_ENGINE",   "PARLANTO_SERVICE_URL",        "PARLANTO_DEEPL_URL",
                               "PARLANTO_LIBRETRANSLATE_URL", "PARLANTO_OPENAI_URL", "PARLANTO_OPENAI_MODEL",
                               "PARLANTO_DEEPL_KEY",          "PARLANTO_LIBRETRANSLATE_KEY", "PARLANTO_OPENAI_KEY"};

void setEnv(const char *name, const QString &value)
{
    qputenv(name, value.toUtf8());
}

// Points an engine at a server (PARLANTO_<ENGINE>_URL).
void pointAt(const QString &engine, const QString &url)
{
    qputenv(("PARLANTO_" + engine.toUpper() + "_URL").toLatin1().constData(), url.toUtf8());
}

// A translation "Hola" as each provider sends it.
Reply success(const QString &engine)
{
    if (engine == u"service")
        return Reply::json(200, R"({"translated_text":"Hola","characters_used":4})");
    if (engine == u"deepl")
        return Reply::json(200, R"({"translations":[{"detected_source_language":"EN","text":"Hola"}]})");
    if (engine == u"libretranslate")
        return Reply::json(200, R"({"translatedText":"Hola","detectedLanguage":{"confidence":90,"language":"en"}})");
    return Reply::json(200, R"({"id":"c1","object":"chat.completion","choices":[{"index":0,)"
                            R"("message":{"role":"assistant","content":"Hola"},"finish_reason":"stop"}]})");
}

// The translation, or the error's message for a readable failure.
QString textOf(const TranslationResult &result)
{
    return result.isOk() ? result.value().translatedText : "<error: " + result.error().userMessage() + '>';
}

QJsonObject bodyOf(const LoopbackHttpServer::Request &request) { return QJsonDocument::fromJson(request.body).object(); }

} // namespace

Q_DECLARE_METATYPE(TranslationError::Kind)

class EnginesTest : public QObject
{
    Q_OBJECT

private:
    TranslationResult translate(const QString &text, const QString &target, TranslateOptions options = {})
    {
        return QCoro::waitFor(m_service->translate(text, target, std::move(options)));
    }
    static void expectError(const TranslationResult &result, Kind kind, const QString &message)
    {
        QVERIFY2(!result.isOk(), qPrintable("expected an error, got " + (result.isOk() ? result.value().translatedText : "")));
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

    void init()
    {
        for (const QString &name : environment)
            qunsetenv(name.toLatin1().constData());
        for (const QString &key : {SettingsKeys::translationEngine, SettingsKeys::deeplUrl, SettingsKeys::libretranslateUrl,
                                   SettingsKeys::openaiUrl, SettingsKeys::openaiModel})
            SettingsStore::shared().remove(key);
        for (const QString &engine : EngineSettings::engineIds())
            KeychainStore::shared().remove(EngineSettings::keyAccount(engine));
        EngineSettings::allowKeysFromEnvironment(false);
        m_server = std::make_unique<LoopbackHttpServer>();
        m_service = std::make_unique<TranslationService>();
    }

    void cleanup() { m_service.reset(), m_server.reset(); }

    void engineChoice()
    {
        const QString builtIn = QString::fromUtf8(BuildConfig::serviceUrl).trimmed();
        QCOMPARE(EngineSettings::selectedEngine(), builtIn.isEmpty() ? "offline" : "service");
        setEnv("PARLANTO_SERVICE_URL", m_server->url().toString());
        QCOMPARE(EngineSettings::selectedEngine(), "service");

        // The setting beats the default; a value that names no engine is ignored.
        SettingsStore::shared().setString(SettingsKeys::translationEngine, "bogus");
        QCOMPARE(EngineSettings::selectedEngine(), "service");
        SettingsStore::shared().setString(SettingsKeys::translationEngine, "LibreTranslate");
        QCOMPARE(EngineSettings::selectedEngine(), "libretranslate");

        // ...and the setting's URL is where the request goes.
        SettingsStore::shared().setString(SettingsKeys::libretranslateUrl, m_server->url().toString() + "/lt/");
        m_server->enqueue(success("libretranslate"));
        QCOMPARE(textOf(translate("Hello", "es")), "Hola");
        QCOMPARE(m_server->requests().last().path, "/lt/translate");

        // The environment beats the setting, and the caller beats both.
        setEnv("PARLANTO_ENGINE", "openai");
        QCOMPARE(EngineSettings::selectedEngine(), "openai");
        setEnv("PARLANTO_OPENAI_URL", m_server->url().toString() + "/v1");
        m_server->enqueue(success("openai"));
        QVERIFY(translate("Hello", "es").isOk());
        QCOMPARE(m_server->requests().last().path, "/v1/chat/completions");
        m_server->enqueue(success("service"));
        QVERIFY(translate("Hello", "es", {{}, "service"}).isOk());
        QCOMPARE(m_server->requests().last().path, "/translate");

        // A name that is no engine is reported, not replaced.
        const qsizetype before = m_server->requests().size();
        const QString unknown =
            "Unknown translation engine \"deepel\". Use one of: service, offline, deepl, libretranslate, openai.";
        setEnv("PARLANTO_ENGINE", "deepel");
        expectError(translate("Hello", "es"), Kind::ServerError, unknown);
        qunsetenv("PARLANTO_ENGINE");
        expectError(translate("Hello", "es", {{}, "deepel"}), Kind::ServerError, unknown);
        QCOMPARE(m_server->requests().size(), before);
    }

    void deepLRequests()
    {
        KeychainStore::shared().save("deepl_api_key", "f63c02c5-f056:fx\n");
        QCOMPARE(EngineSettings::deepLUrl("f63c02c5-f056:fx"), "https://api-free.deepl.com");
        QCOMPARE(EngineSettings::deepLUrl("f63c02c5-f056"), "https://api.deepl.com");
        pointAt("deepl", m_server->url().toString());
        QCOMPARE(EngineSettings::deepLUrl("f63c02c5-f056:fx"), m_server->url().toString());

        const QList<std::pair<QString, QString>> targets{{"en", "EN-US"}, {"pt", "PT-PT"}, {"zh", "ZH-HANS"}, {"ja", "JA"}};
        for (const auto &[code, deepLCode] : targets) {
            m_server->enqueue(success("deepl"));
            const TranslationResult result = translate("Guten Morgen 👋🏽", code, {{}, "deepl"});
            QCOMPARE(textOf(result), "Hola");
            QCOMPARE(result.value().charactersUsed, 15); // code points, as DeepL bills: the emoji counts twice
            const auto &request = m_server->requests().last();
            QCOMPARE(request.method, "POST");
            QCOMPARE(request.path, "/v2/translate");
            QCOMPARE(request.header("Authorization"), "DeepL-Auth-Key f63c02c5-f056:fx");
            QCOMPARE(request.header("Content-Type"), "application/json");
            QCOMPARE(bodyOf(request), (QJsonObject{{"text", QJsonArray{"Guten Morgen 👋🏽"}}, {"target_lang", deepLCode}}));
        }
        m_server->enqueue(success("deepl"));
        QVERIFY(translate("Bom dia", "en", {"pt", "deepl"}).isOk());
        QCOMPARE(bodyOf(m_server->requests().last()),
                 (QJsonObject{{"text", QJsonArray{"Bom dia"}}, {"target_lang", "EN-US"}, {"source_lang", "PT"}}));

        // Without a key nothing is sent.
        KeychainStore::shared().remove("deepl_api_key");
        expectError(translate("Hello", "de", {{}, "deepl"}), Kind::ServerError,
                    "No DeepL API key is stored. Store one as \"deepl_api_key\" in the credential store.");
        QCOMPARE(m_server->requests().size(), targets.size() + 1);
    }

    void libreTranslateRequests()
    {
        pointAt("libretranslate", m_server->url().toString());
        m_server->enqueue(success("libretranslate"));
        QCOMPARE(textOf(translate("Line one\n\nLine two", "es", {{}, "libretranslate"})), "Hola");
        const auto &request = m_server->requests().last();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.path, "/translate");
        QCOMPARE(request.header("Content-Type"), "application/json");
        QVERIFY(!request.hasHeader("Authorization"));
        QCOMPARE(bodyOf(request), (QJsonObject{{"q", "Line one\n\nLine two"}, {"source", "auto"}, {"target", "es"},
                                               {"format", "text"}}));

        KeychainStore::shared().save("libretranslate_api_key", "lt-key-1");
        m_server->enqueue(success("libretranslate"));
        QVERIFY(translate("Hello", "fr", {"en", "libretranslate"}).isOk());
        QCOMPARE(bodyOf(m_server->requests().last()), (QJsonObject{{"q", "Hello"}, {"source", "en"}, {"target", "fr"},
                                                                   {"format", "text"}, {"api_key", "lt-key-1"}}));
    }

    void openAiRequests()
    {
        pointAt("openai", m_server->url().toString() + "/v1/");
        setEnv("PARLANTO_OPENAI_MODEL", "llama3.2");
        const QString text = "  Good morning,\nfriends!\n";
        m_server->enqueue(Reply::json(200, R"({"choices":[{"message":{"role":"assistant","content":)"
                                           R"("<think>\nSpanish, informal.\n</think>\n\n¡Buenos días,\namigos!\n\n"}}]})"));
        // The model's white space and reasoning go; the text's own white space stays.
        QCOMPARE(textOf(translate(text, "es", {{}, "openai"})), "  ¡Buenos días,\namigos!\n");
        const auto &request = m_server->requests().last();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.path, "/v1/chat/completions");
        QCOMPARE(request.header("Content-Type"), "application/json");
        QVERIFY(!request.hasHeader("Authorization")); // a local server needs no key
        const QJsonObject body = bodyOf(request);
        QCOMPARE(body.keys(), (QStringList{"messages", "model", "stream", "temperature"}));
        QCOMPARE(body["model"].toString(), "llama3.2");
        QCOMPARE(body["stream"], QJsonValue(false));
        QVERIFY(body["temperature"].toDouble() <= 0.3);
        const QJsonArray messages = body["messages"].toArray();
        QCOMPARE(messages.size(), 2);
        QCOMPARE(messages[0]["role"].toString(), "system");
        const QString prompt = messages[0]["content"].toString();
        QVERIFY2(prompt.contains("into Spanish") && prompt.contains("translation alone"), qPrintable(prompt));
        QCOMPARE(messages[1].toObject(), (QJsonObject{{"role", "user"}, {"content", text}}));
        QVERIFY(OpenAiEngine::systemPrompt("ja", "fr").contains("from French into Japanese"));

        KeychainStore::shared().save("openai_api_key", "sk-test-123");
        m_server->enqueue(success("openai"));
        QVERIFY(translate("Hello", "es", {{}, "openai"}).isOk());
        QCOMPARE(m_server->requests().last().header("Authorization"), "Bearer sk-test-123");
    }

    void mapsEveryProviderError_data()
    {
        QTest::addColumn<QString>("engine");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("message");

        const QString quota = "You have used this month's translation quota.";
        const QString tooMany = "Too many requests. Please wait a moment.";
        const QString timedOut = "Translation timed out";
        const QString tryAgain = "Translation failed, try again";
        const QString unknown = "Translation failed: Unknown error";
        const QByteArray html = "<html><body>Bad gateway</body></html>";
        const auto row = [](const char *name, const QString &engine, int status, const QByteArray &body, Kind kind,
                            const QString &message) {
            QTest::newRow(qPrintable(engine + ' ' + name)) << engine << status << body << kind << message;
        };

        // DeepL: {"message"} bodies; 403 bad key, 456 quota, 429/529 load, 413/414 too large.
        const QString deepl = "deepl", lt = "libretranslate", ai = "openai";
        const QString tooLong = "Text too long (max 5,000 characters)";
        row("400", deepl, 400, R"({"message":"Value for 'target_lang' not supported."})", Kind::UnknownError,
            "Translation failed: Value for 'target_lang' not supported.");
        row("403", deepl, 403, R"({"message":"Wrong endpoint. Use https://api-free.deepl.com"})", Kind::Unauthorized,
            "DeepL refused the API key. Check the key stored as \"deepl_api_key\".");
        row("404", deepl, 404, R"({"message":"Not found","detail":"no such path"})", Kind::UnknownError,
            "Translation failed: Not found (no such path)");
        row("413", deepl, 413, "", Kind::TextTooLong, tooLong);
        row("414", deepl, 414, "", Kind::TextTooLong, tooLong);
        row("429", deepl, 429, R"({"message":"Too many requests"})", Kind::RateLimited, tooMany);
        row("456", deepl, 456, R"({"message":"Quota exceeded"})", Kind::QuotaExceeded, quota);
        row("500", deepl, 500, R"({"message":"Internal error"})", Kind::UnknownError, "Translation failed: Internal error");
        row("503 HTML", deepl, 503, html, Kind::UnknownError, unknown);
        row("504", deepl, 504, "", Kind::Timeout, timedOut);
        row("529", deepl, 529, "", Kind::RateLimited, tooMany);
        row("200 no translations", deepl, 200, R"({"translations":[]})", Kind::DecodingError, tryAgain);
        row("200 HTML", deepl, 200, html, Kind::DecodingError, tryAgain);

        // LibreTranslate: {"error"} bodies; 400 invalid request or key needed, 403 bad key or banned.
        const QString ltKey = "The LibreTranslate server wants a valid API key: ";
        row("400 invalid", lt, 400, R"({"error":"ja is not supported"})", Kind::UnknownError, "Translation failed: ja is not supported");
        row("400 own text limit", lt, 400, R"x({"error":"Invalid request: request (6000) exceeds text limit (2000)"})x",
            Kind::UnknownError, "Translation failed: Invalid request: request (6000) exceeds text limit (2000)");
        row("400 key needed", lt, 400, R"({"error":"Visit https://portal.libretranslate.com to get an API key"})",
            Kind::Unauthorized, ltKey + "Visit https://portal.libretranslate.com to get an API key");
        row("403 bad key", lt, 403, R"({"error":"Invalid API key"})", Kind::Unauthorized, ltKey + "Invalid API key");
        row("403 banned", lt, 403, R"({"error":"Too many request limits violations"})", Kind::RateLimited, tooMany);
        row("429", lt, 429, R"({"error":"Slowdown: 20 per 1 minute"})", Kind::RateLimited, tooMany);
        row("500", lt, 500, R"({"error":"Cannot translate text: model missing"})", Kind::UnknownError,
            "Translation failed: Cannot translate text: model missing");
        row("502 HTML", lt, 502, html, Kind::UnknownError, unknown);
        row("504", lt, 504, "", Kind::Timeout, timedOut);
        row("200 no text", lt, 200, R"({"detectedLanguage":{"language":"en"}})", Kind::DecodingError, tryAgain);

        // OpenAI-compatible: {"error": {"message", "type", "code"}} and the variants of local servers.
        row("401", ai, 401, R"({"error":{"message":"Incorrect API key provided","type":"invalid_request_error","code":"invalid_api_key"}})",
            Kind::Unauthorized, "The language model server refused the API key. Check the key stored as \"openai_api_key\".");
        row("429 rate", ai, 429, R"({"error":{"message":"Rate limit reached","type":"requests","code":"rate_limit_exceeded"}})",
            Kind::RateLimited, tooMany);
        row("429 quota", ai, 429, R"({"error":{"message":"You exceeded your current quota","type":"insufficient_quota","code":"insufficient_quota"}})",
            Kind::QuotaExceeded, quota);
        row("404 model", ai, 404, R"({"error":{"message":"The model `gpt-9` does not exist","type":"invalid_request_error","code":"model_not_found"}})",
            Kind::UnknownError, "Translation failed: The model `gpt-9` does not exist");
        row("404 Ollama model", ai, 404, "{\"error\":{\"message\":\"model 'llama9' not found, try pulling it first\",\"type\":\"api_error\",\"param\":null,\"code\":null}}",
            Kind::UnknownError, "Translation failed: model 'llama9' not found, try pulling it first");
        row("400 vLLM", ai, 400, R"({"object":"error","message":"context too long","type":"BadRequestError","code":400})",
            Kind::UnknownError, "Translation failed: context too long");
        row("500 plain error", ai, 500, R"({"error":"backend crashed"})", Kind::UnknownError, "Translation failed: backend crashed");
        row("503 HTML", ai, 503, html, Kind::UnknownError, unknown);
        row("408", ai, 408, "", Kind::Timeout, timedOut);
        row("504", ai, 504, "", Kind::Timeout, timedOut);
        row("200 no choices", ai, 200, R"({"choices":[]})", Kind::DecodingError, tryAgain);
        row("200 empty answer", ai, 200, R"({"choices":[{"message":{"role":"assistant","content":" \n"}}]})",
            Kind::DecodingError, tryAgain);
    }

    void mapsEveryProviderError()
    {
        QFETCH(QString, engine);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(Kind, kind);
        QFETCH(QString, message);
        KeychainStore::shared().save("deepl_api_key", "k");
        pointAt(engine, m_server->url().toString());
        m_server->enqueue(body.startsWith('{') ? Reply::json(status, body) : Reply::text(status, body));

        const TranslationResult result = translate("Hello", "es", {{}, engine});

        expectError(result, kind, message);
        if (kind == Kind::UnknownError)
            QCOMPARE(result.error().statusCode(), status);
        QCOMPARE(m_server->requests().size(), 1); // never retried
    }

    // The caller's contract holds whichever engine answers.
    void contractHoldsForEveryEngine_data()
    {
        QTest::addColumn<QString>("engine");
        for (const char *engine : {"service", "deepl", "libretranslate", "openai"})
            QTest::newRow(engine) << QString::fromLatin1(engine);
    }

    void contractHoldsForEveryEngine()
    {
        QFETCH(QString, engine);
        KeychainStore::shared().save("deepl_api_key", "k");
        pointAt(engine, m_server->url().toString());
        const TranslateOptions options{{}, engine};
        AppState::shared().setQuotaRemaining(321);

        m_server->enqueue(success(engine));
        QVERIFY(translate(QString("👍🏽").repeated(5000), "es", options).isOk());
        QCOMPARE(m_server->requests().size(), 1);
        expectError(translate(QString("a").repeated(5001), "es", options), Kind::TextTooLong,
                    "Text too long (max 5,000 characters)");
        const auto empty = translate("", "es", options);
        expectError(empty, Kind::NetworkError, "Translation failed \u2014 no network connection.");
        QCOMPARE(empty.error().underlyingError(), "empty");
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(AppState::shared().quotaRemaining(), 321); // only the service reports a quota

        // Plain http leaves the machine for nobody.
        pointAt(engine, "http://192.0.2.1:8080");
        expectError(translate("Hello", "es", options), Kind::ServerError, "Invalid URL");

        // Nothing listens.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const QString closedUrl = QStringLiteral("http://127.0.0.1:%1").arg(closed.serverPort());
        closed.close();
        pointAt(engine, closedUrl);
        expectError(translate("Hello", "es", options), Kind::NetworkError, "Translation failed \u2014 no network connection.");

        // The client's limits: no answer in time, and a reply larger than 1 MiB.
        pointAt(engine, m_server->url().toString());
        TranslationService hurried({300ms, 60s});
        Reply late = success(engine);
        late.delay = 3s;
        m_server->enqueue(late);
        expectError(QCoro::waitFor(hurried.translate("Hello", "es", options)), Kind::Timeout, "Translation timed out");
        m_server->enqueue(Reply::endless(200, QByteArray(64 * 1024, ' ')));
        expectError(translate("Hello", "es", options), Kind::DecodingError, "Translation failed, try again");
    }

    void offlineEngineKeepsTheContract()
    {
        const TranslateOptions offline{{}, "offline"};
        expectError(translate(QString("a").repeated(5001), "es", offline), Kind::TextTooLong,
                    "Text too long (max 5,000 characters)");
        expectError(translate("", "es", offline), Kind::NetworkError, "Translation failed \u2014 no network connection.");
        auto *engine = dynamic_cast<OfflineEngine *>(m_service->engine("offline"));
        QVERIFY(engine);
        QVERIFY(engine->pipelines().isEmpty()); // refused before any pipeline started

        // A caller on another thread is answered there by the one engine of this thread.
        QThread worker;
        worker.start();
        QObject context;
        context.moveToThread(&worker);
        std::optional<TranslationResult> result;
        bool onWorker = false;
        QEventLoop loop;
        QMetaObject::invokeMethod(&context, [&] {
            QCoro::connect(m_service->translate("Good morning", "es", offline), &context, [&](TranslationResult value) {
                onWorker = QThread::currentThread() == &worker;
                result = std::move(value);
                QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
            });
        });
        loop.exec();
        worker.quit();
        worker.wait();
        QVERIFY(onWorker && result);
        QCOMPARE(textOf(*result), "Buenos días");
        QCOMPARE(engine->pipelines().size(), 1);
    }

    void keysStayInTheCredentialStore()
    {
        KeychainStore::shared().save("deepl_api_key", "deepl-secret-1");
        KeychainStore::shared().save("openai_api_key", "sk-secret-2");
        SettingsStore::shared().setString(SettingsKeys::openaiUrl, m_server->url().toString());
        SettingsStore::shared().setString(SettingsKeys::translationEngine, "openai");

        QStringList shown;
        for (const EngineStatus &status : m_service->engineStatuses()) {
            shown << status.details;
            if (status.id == u"deepl" || status.id == u"openai")
                QVERIFY2(status.configured, qPrintable(status.id));
            QCOMPARE(status.selected, status.id == u"openai");
        }
        QVERIFY2(shown.join('\n').contains("API key stored as \"deepl_api_key\""), qPrintable(shown.join('\n')));
        QFile settings(m_dir.filePath("settings.json"));
        QVERIFY(settings.open(QIODevice::ReadOnly));
        const QByteArray stored = settings.readAll();
        QVERIFY(stored.contains("openai")); // the file is the one in use
        for (const QString &text : {shown.join('\n'), QString::fromUtf8(stored)})
            QVERIFY(!text.contains("secret"));

        // Keys from the environment only where they were allowed (the command line).
        setEnv("PARLANTO_DEEPL_KEY", "from-env");
        QCOMPARE(EngineSettings::apiKey("deepl"), "deepl-secret-1");
        EngineSettings::allowKeysFromEnvironment(true);
        QCOMPARE(EngineSettings::apiKey("deepl"), "from-env");
        QCOMPARE(EngineSettings::apiKey("libretranslate"), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(EnginesTest)
#include "tst_engines.moc"
