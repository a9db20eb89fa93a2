#include "service/LibreTranslateEngine.h"

#include "service/EngineSettings.h"
#include "service/WebEngineSupport.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace WebEngineSupport;

namespace {

QString providerMessage(const QByteArray &body)
{
    const auto object = jsonObject(body);
    return object ? stringMember(*object, u"error") : QString();
}

TranslationError keyRefused(const QString &message)
{
    return TranslationError::unauthorized(QStringLiteral("The LibreTranslate server wants a valid API key: ") + message);
}

} // namespace

LibreTranslateEngine::LibreTranslateEngine(HttpJsonClient::Limits limits)
    : m_http(limits)
{
}

QString LibreTranslateEngine::id() const
{
    return EngineIds::libretranslate;
}

bool LibreTranslateEngine::isConfigured() const
{
    return EngineSettings::hasLibreTranslateUrl() || EngineSettings::apiKey(EngineIds::libretranslate).has_value();
}

TranslationResult LibreTranslateEngine::interpretReply(const HttpReplyResult &reply, const QString &text)
{
    if (auto failure = failureBeforeStatus(reply))
        return *failure;

    const QString message = providerMessage(reply.body);
    // The server names the key when it is missing (400) or unknown (403).
    const bool aboutTheKey = message.contains(QLatin1String("API key"), Qt::CaseInsensitive);
    switch (reply.status) {
    case 200: {
        QString why = QStringLiteral("the reply is too large");
        const auto object = reply.bodyTooLarge ? std::nullopt : jsonObject(reply.body, &why);
        if (!object)
            return TranslationError::decodingError(why);
        const QJsonValue translated = object->value(u"translatedText");
        if (!translated.isString())
            return TranslationError::decodingError(QStringLiteral("\"translatedText\" is missing or not a string"));
        return TranslateResponse{translated.toString(), codePointCount(text), std::nullopt};
    }
    case 400:
        if (aboutTheKey)
            return keyRefused(message);
        break;
    case 403: // an unknown key, or a client banned for breaking the request limits too often
        if (aboutTheKey)
            return keyRefused(message);
        return TranslationError::rateLimited();
    case 429:
        return TranslationError::rateLimited();
    case 504:
        return TranslationError::timeout();
    default:
        break;
    }
    return TranslationError::unknownError(reply.status, message.isEmpty() ? QStringLiteral("Unknown error") : message);
}

QCoro::Task<TranslationResult> LibreTranslateEngine::translate(EngineRequest request)
{
    const auto url = endpoint(EngineSettings::libreTranslateUrl(), u"/translate");
    if (!url)
        co_return TranslationError::serverError(QStringLiteral("Invalid URL"));

    QJsonObject body{
        {QStringLiteral("q"), request.text},
        {QStringLiteral("source"), request.sourceLanguage.isEmpty() ? QStringLiteral("auto") : request.sourceLanguage},
        {QStringLiteral("target"), request.targetLanguage},
        {QStringLiteral("format"), QStringLiteral("text")},
    };
    if (const auto key = EngineSettings::apiKey(EngineIds::libretranslate))
        body.insert(QStringLiteral("api_key"), *key);
    const HttpReplyResult reply = co_await m_http.post(*url, {}, QJsonDocument(body).toJson(QJsonDocument::Compact));
    co_return interpretReply(reply, request.text);
}
