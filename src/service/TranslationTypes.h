#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>
#include <variant>

// A translation as the service returns it.
struct TranslateResponse
{
    QString translatedText;
    qint64 charactersUsed = 0;
    std::optional<qint64> remainingQuota; // absent when the service did not report it
};

// Why a translation failed. Errors are values: every failure of translate() arrives as one of
// these, and userMessage() is the text the popup, notification or HUD shows.
class TranslationError
{
public:
    enum class Kind {
        NetworkError,  // the request could not be carried out, or the text was empty
        QuotaExceeded, // the monthly character quota is used up
        ServerError,   // the service rejected the request with a message, or no usable URL
        UnknownError,  // a status the client has no rule for
        DecodingError, // a 200 reply whose body is not a translation
        Timeout,       // no answer in time, or a gateway failure
        Unauthorized,  // the session token was refused
        RateLimited,   // too many requests
        TextTooLong,   // more than 5000 characters
    };

    static TranslationError networkError(QString underlying);
    static TranslationError quotaExceeded(std::optional<QString> upgradeUrl = std::nullopt);
    static TranslationError serverError(QString message);
    static TranslationError unknownError(int statusCode, QString message);
    static TranslationError decodingError(QString underlying);
    static TranslationError timeout();
    // The message defaults to the web service's "session expired" text; an engine that works with
    // an API key says which key was refused instead.
    static TranslationError unauthorized(QString message = {});
    static TranslationError rateLimited();
    static TranslationError textTooLong();

    Kind kind() const { return m_kind; }
    // The service's or the client's message (ServerError, UnknownError; Unauthorized when an
    // engine gave one).
    QString message() const { return m_message; }
    // The HTTP status (UnknownError); 0 otherwise.
    int statusCode() const { return m_statusCode; }
    // What went wrong underneath (NetworkError, DecodingError): Qt's error text, the decoder's
    // complaint, or "empty" for an empty text.
    QString underlyingError() const { return m_underlying; }
    // The service's upgrade link (QuotaExceeded), carried but not used.
    std::optional<QString> upgradeUrl() const { return m_upgradeUrl; }

    // The sentence shown to the user.
    QString userMessage() const;

private:
    explicit TranslationError(Kind kind) : m_kind(kind) {}

    Kind m_kind;
    QString m_message;
    int m_statusCode = 0;
    QString m_underlying;
    std::optional<QString> m_upgradeUrl;
};

// Either the translation or the reason there is none.
class TranslationResult
{
public:
    // "No result": an UnknownError, for code that needs an empty value to assign to.
    TranslationResult();
    TranslationResult(TranslateResponse response) : m_value(std::move(response)) {}
    TranslationResult(TranslationError error) : m_value(std::move(error)) {}

    bool isOk() const { return std::holds_alternative<TranslateResponse>(m_value); }
    // Only when isOk().
    const TranslateResponse &value() const { return std::get<TranslateResponse>(m_value); }
    // Only when !isOk().
    const TranslationError &error() const { return std::get<TranslationError>(m_value); }

private:
    std::variant<TranslateResponse, TranslationError> m_value;
};
