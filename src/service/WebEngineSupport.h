#pragma once

#include "service/HttpJsonClient.h"
#include "service/TranslationTypes.h"

#include <QJsonObject>
#include <QString>
#include <QStringView>
#include <QUrl>
#include <optional>

// What every engine that speaks HTTP shares: building its endpoint from a base URL, the
// failures that happen before any status arrives, and reading JSON replies.
namespace WebEngineSupport {

// The base URL followed by the path (trailing slashes of the base are dropped); none when the
// base is not an absolute URL that HttpJsonClient may reach, or carries a query or fragment.
std::optional<QUrl> endpoint(const QString &baseUrl, QStringView path);

// A time-out, a broken connection or a reply that is not HTTP, as the error the user sees;
// none when an HTTP status arrived.
std::optional<TranslationError> failureBeforeStatus(const HttpReplyResult &reply);

// The body as a JSON object; none (with the reason) when it is not one.
std::optional<QJsonObject> jsonObject(const QByteArray &body, QString *why = nullptr);

// A string member, or an empty string.
QString stringMember(const QJsonObject &object, QStringView key);

// Characters as providers bill them: Unicode code points.
qint64 codePointCount(const QString &text);

} // namespace WebEngineSupport
