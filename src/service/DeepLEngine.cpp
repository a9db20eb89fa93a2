#include "service/DeepLEngine.h"

#include "service/EngineSettings.h"
#include "service/WebEngineSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace WebEngineSupport;

namespace {

// DeepL's status for a used-up character allowance (monthly or the account's cost control).
constexpr int quotaExceededStatus = 456;

// Error bodies carry "message" and sometimes "detail".
QString providerMessage(const QByteArray &body)
{
    const auto object = jsonObject(body);
    if (!object)
        return {};
    const QString message = stringMember(*object, u"message");
    const QString detail = stringMember(*object, u"detail");
    if (message.isEmpty())
        return detail;
    return detail.isEmpty() ? message : message + QStringLiteral(" (") + detail + u')';
}

} // namespace

DeepLEngine::DeepLEngine(HttpJsonClient::Limits limits)
    : m_http(limits)
{
}

QString DeepLEngine::targetCode(const QString &language)
{
    const QString code = language.toLower();
    if (code == u"en")
        return QStringLiteral("EN-US");
    if (code == u"pt")
        return QStringLiteral("PT-PT"); // the variant the offline engine writes too
    if (code == u"zh")
        return QStringLiteral("ZH-HANS");
    return code.toUpper();
}

QString DeepLEngine::sourceCode(const QString &language)
{
    return language.section(u'-', 0, 0).toUpper();
}

QString DeepLEngine::id() const
{
    return EngineIds::deepl;
}

bool DeepLEngine::isConfigured() const
{
    return EngineSettings::apiKey(EngineIds::deepl).has_value();
}

TranslationResult DeepLEngine::interpretReply(const HttpReplyResult &reply, const QString &text)
{
    if (auto failure = failureBeforeStatus(reply))
        return *failure;

    switch (reply.status) {
    case 200: {
        QString why = QStringLiteral("the reply is too large");
        const auto object = reply.bodyTooLarge ? std::nullopt : jsonObject(reply.body, &why);
        if (!object)
            return TranslationError::decodingError(why);
        const QJsonArray translations = object->value(u"translations").toArray();
        const QJsonValue translated = translations.isEmpty() ? QJsonValue() : translations.first()[u"text"];
        if (!translated.isString())
            return TranslationError::decodingError(QStringLiteral("\"translations[0].text\" is missing"));
        return TranslateResponse{translated.toString(), codePointCount(text), std::nullopt};
    }
    case 401:
    case 403:
        return TranslationError::unauthorized(
            QStringLiteral("DeepL refused the API key. Check the key stored as \"deepl_api_key\"."));
    case quotaExceededStatus:
        return TranslationError::quotaExceeded();
    case 429:
    case 529:
        return TranslationError::rateLimited();
    case 413:
    case 414:
        return TranslationError::textTooLong();
    case 504:
        return TranslationError::timeout();
    default: {
        const QString message = providerMessage(reply.body);
        return TranslationError::unknownError(reply.status, message.isEmpty() ? QStringLiteral("Unknown error") : message);
    }
    }
}

QCoro::Task<TranslationResult> DeepLEngine::translate(EngineRequest request)
{
    const auto key = EngineSettings::apiKey(EngineIds::deepl);
    if (!key)
        co_return TranslationError::serverError(
            QStringLiteral("No DeepL API key is stored. Store one as \"deepl_api_key\" in the credential store."));
    const auto url = endpoint(EngineSettings::deepLUrl(*key), u"/v2/translate");
    if (!url)
        co_return TranslationError::serverError(QStringLiteral("Invalid URL"));

    QJsonObject body{
        {QStringLiteral("text"), QJsonArray{request.text}},
        {QStringLiteral("target_lang"), targetCode(request.targetLanguage)},
    };
    if (!request.sourceLanguage.isEmpty())
        body.insert(QStringLiteral("source_lang"), sourceCode(request.sourceLanguage));
    HttpHeaders headers{{QByteArrayLiteral("Authorization"), "DeepL-Auth-Key " + key->toUtf8()}};
    const HttpReplyResult reply =
        co_await m_http.post(*url, std::move(headers), QJsonDocument(body).toJson(QJsonDocument::Compact));
    co_return interpretReply(reply, request.text);
}
