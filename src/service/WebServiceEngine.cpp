#include "service/WebServiceEngine.h"

#include "BuildConfig.h"
#include "service/EngineSettings.h"
#include "service/KeychainStore.h"
#include "service/WebEngineSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>

namespace {

const char *const serviceUrlVariable = "PARLANTO_SERVICE_URL";

// A JSON number without a fractional part.
std::optional<qint64> integerValue(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (std::trunc(number) != number || std::abs(number) > 9.007199254740992e15)
        return std::nullopt;
    return static_cast<qint64>(number);
}

// An optional string member: absent and null are "none", anything but a string is malformed.
bool optionalString(const QJsonObject &object, const QString &key, std::optional<QString> &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

// The body of a 200 reply.
std::variant<TranslateResponse, QString> decodeTranslation(const QByteArray &body)
{
    QString why;
    const auto object = WebEngineSupport::jsonObject(body, &why);
    if (!object)
        return why;
    const QJsonValue text = object->value(u"translated_text");
    if (!text.isString())
        return QStringLiteral("\"translated_text\" is missing or not a string");
    const auto used = integerValue(object->value(u"characters_used"));
    if (!used)
        return QStringLiteral("\"characters_used\" is missing or not an integer");
    TranslateResponse response{text.toString(), *used, std::nullopt};
    const QJsonValue quota = object->value(u"remaining_quota");
    if (!quota.isUndefined() && !quota.isNull()) {
        response.remainingQuota = integerValue(quota);
        if (!response.remainingQuota)
            return QStringLiteral("\"remaining_quota\" is not an integer");
    }
    return response;
}

// The body of an error reply; none when it is not one ("error" is required).
struct ApiError
{
    QString error;
    std::optional<QString> message;
    std::optional<QString> upgradeUrl;
};

std::optional<ApiError> decodeApiError(const QByteArray &body)
{
    QString why;
    const auto object = WebEngineSupport::jsonObject(body, &why);
    if (!object)
        return std::nullopt;
    const QJsonValue code = object->value(u"error");
    if (!code.isString())
        return std::nullopt;
    ApiError error{code.toString(), std::nullopt, std::nullopt};
    if (!optionalString(*object, QStringLiteral("message"), error.message)
        || !optionalString(*object, QStringLiteral("upgrade_url"), error.upgradeUrl))
        return std::nullopt;
    return error;
}

} // namespace

WebServiceEngine::WebServiceEngine(HttpJsonClient::Limits limits)
    : m_http(limits)
{
}

QString WebServiceEngine::configuredBaseUrl()
{
    if (qEnvironmentVariableIsSet(serviceUrlVariable))
        return qEnvironmentVariable(serviceUrlVariable);
    return QString::fromUtf8(BuildConfig::serviceUrl);
}

std::optional<QUrl> WebServiceEngine::endpointUrl(const QString &baseUrl)
{
    return WebEngineSupport::endpoint(baseUrl, u"/translate");
}

QString WebServiceEngine::id() const
{
    return EngineIds::service;
}

bool WebServiceEngine::isConfigured() const
{
    return !configuredBaseUrl().trimmed().isEmpty();
}

TranslationResult WebServiceEngine::interpretReply(const HttpReplyResult &reply)
{
    if (auto failure = WebEngineSupport::failureBeforeStatus(reply))
        return *failure;
    const QByteArray &body = reply.body; // empty when it was too large

    switch (reply.status) {
    case 200: {
        auto decoded = decodeTranslation(body);
        if (auto *response = std::get_if<TranslateResponse>(&decoded))
            return std::move(*response);
        return TranslationError::decodingError(
            reply.bodyTooLarge ? QStringLiteral("the reply is too large") : std::get<QString>(decoded));
    }
    case 400: {
        const auto error = decodeApiError(body);
        const QString message = error ? error->message.value_or(QString()) : QString();
        const QString lower = message.toLower();
        if (error && error->error == u"validation_error"
            && (lower.contains(u"5,000") || lower.contains(u"exceeds")))
            return TranslationError::textTooLong();
        return TranslationError::serverError(message.isEmpty() ? QStringLiteral("Validation error") : message);
    }
    case 401:
        return TranslationError::unauthorized();
    case 429: {
        const auto error = decodeApiError(body);
        if (error && error->error == u"quota_exceeded")
            return TranslationError::quotaExceeded(error->upgradeUrl);
        return TranslationError::rateLimited();
    }
    case 502:
    case 504: // a failing gateway looks like a time-out to the user, on purpose
        return TranslationError::timeout();
    default: {
        const auto error = decodeApiError(body);
        const auto message = error ? error->message : std::nullopt;
        return TranslationError::unknownError(reply.status, message.value_or(QStringLiteral("Unknown error")));
    }
    }
}

QCoro::Task<TranslationResult> WebServiceEngine::translate(EngineRequest request)
{
    const QString base = configuredBaseUrl();
    if (base.trimmed().isEmpty())
        co_return TranslationError::serverError(QStringLiteral("No translation service is configured."));
    const auto url = endpointUrl(base);
    if (!url)
        co_return TranslationError::serverError(QStringLiteral("Invalid URL"));

    HttpHeaders headers;
    // Read on every call: signing in or out elsewhere takes effect on the next request.
    const auto token = KeychainStore::shared().load(KeychainStore::sessionTokenKey);
    if (token && !token->isEmpty())
        headers.append({QByteArrayLiteral("Authorization"), "Bearer " + token->toUtf8()});

    const QJsonObject body{
        {QStringLiteral("text"), request.text},
        {QStringLiteral("target_language"), request.targetLanguage},
        {QStringLiteral("mode"), QStringLiteral("translate")},
    };
    const HttpReplyResult reply =
        co_await m_http.post(*url, std::move(headers), QJsonDocument(body).toJson(QJsonDocument::Compact));
    co_return interpretReply(reply);
}
