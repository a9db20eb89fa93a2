#include "service/WebEngineSupport.h"

#include <QJsonDocument>

namespace WebEngineSupport {

std::optional<QUrl> endpoint(const QString &baseUrl, QStringView path)
{
    QUrl url(baseUrl.trimmed(), QUrl::StrictMode);
    if (url.isRelative() || url.hasQuery() || url.hasFragment() || !HttpJsonClient::isPermittedUrl(url))
        return std::nullopt;
    QString joined = url.path();
    while (joined.endsWith(u'/'))
        joined.chop(1);
    url.setPath(joined + path.toString());
    return url;
}

std::optional<TranslationError> failureBeforeStatus(const HttpReplyResult &reply)
{
    switch (reply.transport) {
    case HttpReplyResult::Transport::TimedOut:
        return TranslationError::timeout();
    case HttpReplyResult::Transport::NetworkError:
        return TranslationError::networkError(reply.errorString);
    case HttpReplyResult::Transport::Ok:
        break;
    }
    if (reply.status == 0)
        return TranslationError::serverError(QStringLiteral("Invalid response"));
    return std::nullopt;
}

std::optional<QJsonObject> jsonObject(const QByteArray &body, QString *why)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (why)
            *why = parseError.errorString();
        return std::nullopt;
    }
    if (!document.isObject()) {
        if (why)
            *why = QStringLiteral("the reply is not a JSON object");
        return std::nullopt;
    }
    return document.object();
}

QString stringMember(const QJsonObject &object, QStringView key)
{
    const QJsonValue value = object.value(key);
    return value.isString() ? value.toString() : QString();
}

qint64 codePointCount(const QString &text)
{
    qint64 count = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!(text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()))
            ++count;
    }
    return count;
}

} // namespace WebEngineSupport
