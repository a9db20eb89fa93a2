#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationEngine.h"

// Any server that speaks OpenAI's chat completions (OpenAI itself, Ollama, llama.cpp's server,
// LM Studio, vLLM...): POST {url}/chat/completions with {"model", "messages": [system, user],
// "temperature", "stream": false}, "Authorization: Bearer <key>" when a key is stored. The
// system message asks for the translation alone; the user message is the text, unchanged.
class OpenAiEngine final : public TranslationEngine
{
public:
    static constexpr double temperature = 0.2;

    explicit OpenAiEngine(HttpJsonClient::Limits limits = {});

    // The instruction sent as the system message (language codes of our table; source may be empty).
    static QString systemPrompt(const QString &targetLanguage, const QString &sourceLanguage);
    // The model's answer as a translation of `text`: a leading reasoning block (<think>...</think>)
    // is dropped and the text's own surrounding white space replaces the model's.
    static TranslationResult interpretReply(const HttpReplyResult &reply, const QString &text);

    QString id() const override;
    // A key is stored or a server of the user's own is set (a local server needs no key).
    bool isConfigured() const override;
    QCoro::Task<TranslationResult> translate(EngineRequest request) override;

private:
    HttpJsonClient m_http;
};
