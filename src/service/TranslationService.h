#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationTypes.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QCoro/QCoroTask>
#include <optional>

// The translation web service's wire format: POST {base}/translate with a bearer token and a
// JSON body, and the mapping of its replies to a translation or an error. Knows nothing about
// length limits or the application's state.
class WebServiceEngine
{
public:
    explicit WebServiceEngine(HttpJsonClient::Limits limits = {});

    // The base URL: $PARLANTO_SERVICE_URL when set (even empty), else the one built in.
    static QString configuredBaseUrl();
    // base + "/translate"; none when the base is not a permitted absolute URL.
    static std::optional<QUrl> endpointUrl(const QString &baseUrl);
    // What a reply means for the caller.
    static TranslationResult interpretReply(const HttpReplyResult &reply);

    QCoro::Task<TranslationResult> translate(QString text, QString targetLanguage);

private:
    HttpJsonClient m_http;
};

// The one entry point for translations. Checks the text, asks the engine, and keeps the
// remaining quota in AppState up to date. May be awaited from any thread with an event loop;
// results are values, never exceptions.
class TranslationService : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxCharacters = 5000;

    // The process-wide instance (created on first use, on the main thread, never released).
    static TranslationService &shared();

    // Tests shorten the network limits; the program uses the defaults (10 s / 12 s).
    explicit TranslationService(HttpJsonClient::Limits limits = {}, QObject *parent = nullptr);

    QCoro::Task<TranslationResult> translate(QString text, QString targetLanguage);

    // User-perceived characters (extended grapheme clusters), counted up to limit + 1.
    static qsizetype characterCount(const QString &text, qsizetype limit = maxCharacters);

private:
    static void storeRemainingQuota(qint64 quota);

    HttpJsonClient::Limits m_limits;
    WebServiceEngine m_webService;
};
