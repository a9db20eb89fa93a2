#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationEngine.h"

#include <QString>
#include <QUrl>
#include <optional>

// The translation web service's wire format: POST {base}/translate with a bearer token and a
// JSON body, and the mapping of its replies to a translation or an error. Knows nothing about
// length limits or the application's state.
class WebServiceEngine final : public TranslationEngine
{
public:
    explicit WebServiceEngine(HttpJsonClient::Limits limits = {});

    // The base URL: $PARLANTO_SERVICE_URL when set (even empty), else the one built in.
    static QString configuredBaseUrl();
    // base + "/translate"; none when the base is not a permitted absolute URL.
    static std::optional<QUrl> endpointUrl(const QString &baseUrl);
    // What a reply means for the caller.
    static TranslationResult interpretReply(const HttpReplyResult &reply);

    QString id() const override;
    // A base URL is configured.
    bool isConfigured() const override;
    // The service detects the source language itself; the request's is not sent.
    QCoro::Task<TranslationResult> translate(EngineRequest request) override;

private:
    HttpJsonClient m_http;
};
