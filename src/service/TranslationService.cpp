#include "service/TranslationService.h"

#include "service/DeepLEngine.h"
#include "service/EngineSettings.h"
#include "service/LibreTranslateEngine.h"
#include "service/OfflineEngine.h"
#include "service/OpenAiEngine.h"
#include "service/WebServiceEngine.h"
#include "state/AppState.h"

#include <QCoreApplication>
#include <QPromise>
#include <QTextBoundaryFinder>
#include <QThread>
#include <QCoro/QCoroFuture>
#include <algorithm>
#include <limits>

namespace {

QString keyState(const QString &engineId)
{
    const QString account = EngineSettings::keyAccount(engineId);
    return EngineSettings::apiKey(engineId) ? QStringLiteral("API key stored as \"%1\"").arg(account)
                                            : QStringLiteral("no API key stored as \"%1\"").arg(account);
}

} // namespace

TranslationService &TranslationService::shared()
{
    static TranslationService *instance = new TranslationService();
    return *instance;
}

TranslationService::TranslationService(HttpJsonClient::Limits limits, QObject *parent)
    : QObject(parent)
    , m_limits(limits)
{
}

TranslationService::~TranslationService() = default;

std::unique_ptr<TranslationEngine> TranslationService::createEngine(const QString &id, HttpJsonClient::Limits limits)
{
    if (id == EngineIds::service)
        return std::make_unique<WebServiceEngine>(limits);
    if (id == EngineIds::offline)
        return std::make_unique<OfflineEngine>();
    if (id == EngineIds::deepl)
        return std::make_unique<DeepLEngine>(limits);
    if (id == EngineIds::libretranslate)
        return std::make_unique<LibreTranslateEngine>(limits);
    if (id == EngineIds::openai)
        return std::make_unique<OpenAiEngine>(limits);
    return nullptr;
}

QString TranslationService::unknownEngineMessage(const QString &id)
{
    return QStringLiteral("Unknown translation engine \"%1\". Use one of: %2.")
        .arg(id, EngineSettings::engineIds().join(QStringLiteral(", ")));
}

TranslationEngine *TranslationService::engine(const QString &id)
{
    auto found = m_engines.find(id);
    if (found == m_engines.end()) {
        auto made = createEngine(id, m_limits);
        if (!made)
            return nullptr;
        found = m_engines.emplace(id, std::move(made)).first;
    }
    return found->second.get();
}

QList<EngineStatus> TranslationService::engineStatuses()
{
    const QString selected = EngineSettings::selectedEngine();
    QList<EngineStatus> statuses;
    for (const QString &id : EngineSettings::engineIds()) {
        TranslationEngine *instance = engine(id);
        EngineStatus status{id, instance->isConfigured(), id == selected, {}, {}};
        if (id == EngineIds::service) {
            const QString url = WebServiceEngine::configuredBaseUrl().trimmed();
            status.details = url.isEmpty() ? QStringLiteral("no service URL (PARLANTO_SERVICE_URL)") : url;
        } else if (id == EngineIds::offline) {
            if (auto *offline = dynamic_cast<OfflineEngine *>(instance))
                status.directions = offline->directionNames();
            status.details = status.configured ? QStringLiteral("Apertium on this machine")
                                                : QStringLiteral("no Apertium language pairs installed");
        } else if (id == EngineIds::deepl) {
            const auto key = EngineSettings::apiKey(id);
            status.details = (key ? EngineSettings::deepLUrl(*key) + QStringLiteral(", ") : QString()) + keyState(id);
        } else if (id == EngineIds::libretranslate) {
            status.details = EngineSettings::libreTranslateUrl() + QStringLiteral(", ") + keyState(id);
        } else if (id == EngineIds::openai) {
            status.details = QStringLiteral("%1, model \"%2\", %3")
                                 .arg(EngineSettings::openAiUrl(), EngineSettings::openAiModel(), keyState(id));
        }
        statuses.append(status);
    }
    return statuses;
}

qsizetype TranslationService::characterCount(const QString &text, qsizetype limit)
{
    if (text.isEmpty())
        return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (count <= limit && finder.toNextBoundary() != -1)
        ++count;
    return count;
}

QCoro::Task<TranslationResult> TranslationService::translate(QString text, QString targetLanguage)
{
    return translate(std::move(text), std::move(targetLanguage), TranslateOptions{});
}

QCoro::Task<TranslationResult> TranslationService::translate(QString text, QString targetLanguage,
                                                             TranslateOptions options)
{
    const qsizetype count = characterCount(text);
    if (count < 1)
        co_return TranslationError::networkError(QStringLiteral("empty"));
    if (count > maxCharacters)
        co_return TranslationError::textTooLong();

    const QString id = options.engine.isEmpty() ? EngineSettings::selectedEngine() : options.engine.trimmed().toLower();
    if (!EngineSettings::isKnownEngine(id))
        co_return TranslationError::serverError(unknownEngineMessage(id));
    EngineRequest request{std::move(text), std::move(targetLanguage), std::move(options.sourceLanguage)};

    TranslationResult result;
    if (QThread::currentThread() == thread()) {
        result = co_await engine(id)->translate(std::move(request));
    } else if (id == EngineIds::offline) {
        // Its pipelines are shared and belong to this object's thread.
        result = co_await translateOnOwnThread(id, std::move(request));
    } else {
        // Network objects belong to the thread that made them: a caller on another thread gets
        // an engine of its own for this one call.
        const std::unique_ptr<TranslationEngine> callersEngine = createEngine(id, m_limits);
        result = co_await callersEngine->translate(std::move(request));
    }
    if (result.isOk() && result.value().remainingQuota)
        storeRemainingQuota(*result.value().remainingQuota);
    co_return result;
}

QCoro::Task<TranslationResult> TranslationService::translateOnOwnThread(QString id, EngineRequest request)
{
    auto promise = std::make_shared<QPromise<void>>();
    auto outcome = std::make_shared<std::optional<TranslationResult>>();
    QFuture<void> finished = promise->future();
    promise->start();
    QMetaObject::invokeMethod(
        this,
        [this, id, request = std::move(request), promise, outcome]() mutable {
            QCoro::connect(engine(id)->translate(std::move(request)), this, [promise, outcome](TranslationResult result) {
                *outcome = std::move(result);
                promise->finish();
            });
        },
        Qt::QueuedConnection);
    co_await finished; // resumes on the calling thread; a dropped promise finishes it too
    if (!*outcome)
        co_return TranslationError::networkError(QStringLiteral("the translation service stopped"));
    co_return std::move(**outcome);
}

void TranslationService::storeRemainingQuota(qint64 quota)
{
    const int value = static_cast<int>(
        std::clamp<qint64>(quota, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        AppState::shared().setQuotaRemaining(value);
        return;
    }
    QMetaObject::invokeMethod(app, [value] { AppState::shared().setQuotaRemaining(value); }, Qt::QueuedConnection);
}
