#include "service/TranslationTypes.h"

TranslationError TranslationError::networkError(QString underlying)
{
    TranslationError error(Kind::NetworkError);
    error.m_underlying = std::move(underlying);
    return error;
}

TranslationError TranslationError::quotaExceeded(std::optional<QString> upgradeUrl)
{
    TranslationError error(Kind::QuotaExceeded);
    error.m_upgradeUrl = std::move(upgradeUrl);
    return error;
}

TranslationError TranslationError::serverError(QString message)
{
    TranslationError error(Kind::ServerError);
    error.m_message = std::move(message);
    return error;
}

TranslationError TranslationError::unknownError(int statusCode, QString message)
{
    TranslationError error(Kind::UnknownError);
    error.m_statusCode = statusCode;
    error.m_message = std::move(message);
    return error;
}

TranslationError TranslationError::decodingError(QString underlying)
{
    TranslationError error(Kind::DecodingError);
    error.m_underlying = std::move(underlying);
    return error;
}

TranslationError TranslationError::timeout() { return TranslationError(Kind::Timeout); }
TranslationError TranslationError::unauthorized(QString message)
{
    TranslationError error(Kind::Unauthorized);
    error.m_message = std::move(message);
    return error;
}

TranslationError TranslationError::rateLimited() { return TranslationError(Kind::RateLimited); }
TranslationError TranslationError::textTooLong() { return TranslationError(Kind::TextTooLong); }

QString TranslationError::userMessage() const
{
    switch (m_kind) {
    case Kind::NetworkError:
        return QStringLiteral("Translation failed \u2014 no network connection.");
    case Kind::QuotaExceeded:
        return QStringLiteral("You have used this month's translation quota.");
    case Kind::ServerError:
        return m_message;
    case Kind::UnknownError:
        return QStringLiteral("Translation failed: ") + m_message;
    case Kind::DecodingError:
        return QStringLiteral("Translation failed, try again");
    case Kind::Timeout:
        return QStringLiteral("Translation timed out");
    case Kind::Unauthorized:
        if (!m_message.isEmpty())
            return m_message;
        return QStringLiteral("Your session has expired. Please sign in again.");
    case Kind::RateLimited:
        return QStringLiteral("Too many requests. Please wait a moment.");
    case Kind::TextTooLong:
        return QStringLiteral("Text too long (max 5,000 characters)");
    }
    return {};
}

TranslationResult::TranslationResult()
    : m_value(TranslationError::unknownError(0, QStringLiteral("No result")))
{
}
