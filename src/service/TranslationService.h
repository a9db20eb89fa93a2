#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationEngine.h"
#include "service/TranslationTypes.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QCoro/QCoroTask>
#include <map>
#include <memory>

// What a caller may ask beyond the text and the target.
struct TranslateOptions
{
    QString sourceLanguage; // a code of the language table; empty: the engine detects it
    QString engine;         // an engine id; empty: the one chosen in the settings
};

// One engine as `parlanto engines` shows it.
struct EngineStatus
{
    QString id;
    bool configured = false;
    bool selected = false;  // the one used when a request names none
    QString details;        // where it translates, or what it lacks (never a key)
    QStringList directions; // the offline engine's language pairs, "en → es", "en → pt (via es)"
};

// The one entry point for translations. Checks the text, asks the engine chosen in the
// settings (or named by the caller), and keeps the remaining quota in AppState up to date.
// May be awaited from any thread with an event loop; results are values, never exceptions.
class TranslationService : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxCharacters = 5000;

    // The process-wide instance (created on first use, on the main thread, never released).
    static TranslationService &shared();

    // Tests shorten the network limits; the program uses the defaults (10 s / 12 s).
    explicit TranslationService(HttpJsonClient::Limits limits = {}, QObject *parent = nullptr);
    ~TranslationService() override;

    QCoro::Task<TranslationResult> translate(QString text, QString targetLanguage);
    QCoro::Task<TranslationResult> translate(QString text, QString targetLanguage, TranslateOptions options);

    // This instance's engine of that id, made on first use; nullptr for an unknown id. Only on
    // the thread the service lives on.
    TranslationEngine *engine(const QString &id);
    // Every engine, in the order the user sees them.
    QList<EngineStatus> engineStatuses();

    // A new engine of that id (nullptr for an unknown id).
    static std::unique_ptr<TranslationEngine> createEngine(const QString &id, HttpJsonClient::Limits limits = {});
    // "Unknown translation engine "x". Use one of: service, offline, ..."
    static QString unknownEngineMessage(const QString &id);

    // User-perceived characters (extended grapheme clusters), counted up to limit + 1.
    static qsizetype characterCount(const QString &text, qsizetype limit = maxCharacters);

private:
    // Runs the request on this object's thread (for engines that keep state there) and hands
    // the result back to the calling thread.
    QCoro::Task<TranslationResult> translateOnOwnThread(QString id, EngineRequest request);
    static void storeRemainingQuota(qint64 quota);

    HttpJsonClient::Limits m_limits;
    std::map<QString, std::unique_ptr<TranslationEngine>> m_engines;
};
