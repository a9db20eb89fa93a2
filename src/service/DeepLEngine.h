#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationEngine.h"

// DeepL's API v2: POST {host}/v2/translate with "Authorization: DeepL-Auth-Key <key>" and a
// JSON body {"text": [...], "target_lang": ..., "source_lang"?}. The host follows the key (a
// free key ends in ":fx") unless "deepl_url" overrides it. The key is read on every request.
class DeepLEngine final : public TranslationEngine
{
public:
    explicit DeepLEngine(HttpJsonClient::Limits limits = {});

    // DeepL's code for a language of our table: "EN-US", "PT-PT", "ZH-HANS", else upper case.
    static QString targetCode(const QString &language);
    // Source languages carry no variant: "EN", "PT", "ZH".
    static QString sourceCode(const QString &language);
    // What a reply means; the request's text is what DeepL bills.
    static TranslationResult interpretReply(const HttpReplyResult &reply, const QString &text);

    QString id() const override;
    // A key is stored.
    bool isConfigured() const override;
    QCoro::Task<TranslationResult> translate(EngineRequest request) override;

private:
    HttpJsonClient m_http;
};
