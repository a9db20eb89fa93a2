// What the engine layer adds to a request: TranslationService (length check, engine selection
// from settings and environment, key lookup, request building, reply mapping) against the same
// POST (the very bytes the engine sent) with HttpJsonClient directly, both to a loopback server
// in this process.
//   scripts/desktop-session build/bench/bench_engines [requests per round]
#include "service/EngineSettings.h"
#include "service/HttpJsonClient.h"
#include "service/KeychainStore.h"
#include "service/TranslationService.h"
#include "service/DeepLEngine.h"
#include "service/LibreTranslateEngine.h"
#include "service/OpenAiEngine.h"
#include "service/WebServiceEngine.h"
#include "state/SettingsStore.h"
#include "support/LoopbackHttpServer.h"
#include "system/SystemKeychain.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QCoro/QCoroTask>
#include <algorithm>
#include <cstdio>
#include <functional>

using Reply = LoopbackHttpServer::Reply;

namespace {

struct Engine
{
    QString id;
    const char *urlVariable;
    QByteArray path;
    QByteArray reply;
};

// Microseconds per request over `count` sequential requests.
double perRequest(int count, const std::function<bool()> &request)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < count; ++i) {
        if (!request()) {
            std::fprintf(stderr, "a request failed\n");
            std::exit(1);
        }
    }
    return static_cast<double>(timer.nsecsElapsed()) / 1000.0 / count;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? std::max(10, atoi(argv[1])) : 500;
    constexpr int rounds = 7;

    QTemporaryDir dir;
    SettingsStore::setShared(std::make_unique<JsonSettingsStore>(dir.filePath(QStringLiteral("settings.json"))));
    KeychainStore::setSharedBackend(nullptr); // no keys: nothing to look up but the absence

    const QList<Engine> engines{
        {QStringLiteral("service"), "PARLANTO_SERVICE_URL", "/translate",
         R"({"translated_text":"Buenos días","characters_used":12})"},
        {QStringLiteral("libretranslate"), "PARLANTO_LIBRETRANSLATE_URL", "/translate",
         R"({"translatedText":"Buenos días"})"},
        {QStringLiteral("openai"), "PARLANTO_OPENAI_URL", "/chat/completions",
         R"({"choices":[{"index":0,"message":{"role":"assistant","content":"Buenos días"},"finish_reason":"stop"}]})"},
    };
    const QString text = QStringLiteral("Good morning, how are you today?");

    std::printf("Engine layer cost per request, loopback server in-process, %d alternating requests each (medians)\n",
                count * rounds);
    std::printf("%-16s %14s %14s %14s\n", "engine", "direct (us)", "service (us)", "added (us)");
    for (const Engine &engine : engines) {
        LoopbackHttpServer server;
        server.setFallbackReply(Reply::json(200, engine.reply));
        qputenv(engine.urlVariable, server.url().toString().toUtf8());
        qputenv("PARLANTO_ENGINE", engine.id.toUtf8());

        TranslationService service;
        HttpJsonClient client;
        QUrl url = server.url();
        url.setPath(QString::fromLatin1(engine.path));
        const auto throughService = [&] {
            return QCoro::waitFor(service.translate(text, QStringLiteral("es"))).isOk();
        };
        // The direct requests carry exactly the body the engine sends.
        perRequest(50, throughService);
        const QByteArray body = server.requests().last().body;

        const auto direct = [&] {
            const HttpReplyResult reply = QCoro::waitFor(client.post(url, {}, body));
            return reply.isOk() && reply.status == 200;
        };
        perRequest(50, direct); // warm this connection up too
        // Alternating single requests, so that whatever else the machine does hits both alike.
        QList<double> directTimes, serviceTimes;
        for (int i = 0; i < count * rounds; ++i) {
            directTimes << perRequest(1, direct);
            serviceTimes << perRequest(1, throughService);
        }
        const double d = median(directTimes);
        const double s = median(serviceTimes);
        std::printf("%-16s %14.1f %14.1f %14.1f\n", qPrintable(engine.id), d, s, s - d);
        qunsetenv(engine.urlVariable);
    }

    // The layer's own work without the network, many times over.
    constexpr int many = 20000;
    HttpReplyResult reply;
    reply.status = 200;
    std::printf("\nWithout the network (%d calls each):\n", many);
    std::printf("  %-44s %8.2f us\n", "choosing the engine (settings + environment)",
                perRequest(many, [] { return !EngineSettings::selectedEngine().isEmpty(); }));
    std::printf("  %-44s %8.2f us\n", "length check of the sentence (graphemes)",
                perRequest(many, [&] { return TranslationService::characterCount(text) > 0; }));
    const QString long5000 = QString(QStringLiteral("Good morning, how are you today? ")).repeated(152).left(5000);
    std::printf("  %-44s %8.2f us\n", "length check of 5,000 characters",
                perRequest(2000, [&] { return TranslationService::characterCount(long5000) > 0; }));
    reply.body = engines.at(0).reply;
    std::printf("  %-44s %8.2f us\n", "reading a reply: service",
                perRequest(many, [&] { return WebServiceEngine::interpretReply(reply).isOk(); }));
    reply.body = R"({"translations":[{"detected_source_language":"EN","text":"Buenos días"}]})";
    std::printf("  %-44s %8.2f us\n", "reading a reply: deepl",
                perRequest(many, [&] { return DeepLEngine::interpretReply(reply, text).isOk(); }));
    reply.body = engines.at(1).reply;
    std::printf("  %-44s %8.2f us\n", "reading a reply: libretranslate",
                perRequest(many, [&] { return LibreTranslateEngine::interpretReply(reply, text).isOk(); }));
    reply.body = engines.at(2).reply;
    std::printf("  %-44s %8.2f us\n", "reading a reply: openai",
                perRequest(many, [&] { return OpenAiEngine::interpretReply(reply, text).isOk(); }));

    // Every request reads its key or token afresh; with the desktop's Secret Service that is a
    // D-Bus round trip.
    KeychainStore::setSharedBackend(createSystemKeychainBackend());
    std::printf("  %-44s %8.2f us\n", "key lookup in the Secret Service (absent key)",
                perRequest(200, [] { return !EngineSettings::apiKey(EngineIds::deepl).has_value(); }));
    return 0;
}
