#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationEngine.h"

// A LibreTranslate server: POST {url}/translate with the JSON body {"q", "source" ("auto" when
// the source is not given), "target", "format": "text", "api_key" (only when a key is stored)}.
// Errors arrive as {"error": "..."}. The URL and key are read on every request.
class LibreTranslateEngine final : public TranslationEngine
{
public:
    explicit LibreTranslateEngine(HttpJsonClient::Limits limits = {});

    static TranslationResult interpretReply(const HttpReplyResult &reply, const QString &text);

    QString id() const override;
    // A key is stored or a server of the user's own is set (public servers want a key).
    bool isConfigured() const override;
    QCoro::Task<TranslationResult> translate(EngineRequest request) override;

private:
    HttpJsonClient m_http;
};
