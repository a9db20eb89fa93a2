#include "state/HotkeyConfig.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

namespace {

// A JSON number that is a whole number in the unsigned 32-bit range.
std::optional<quint32> toUInt32(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (number < 0 || number > 4294967295.0 || number != static_cast<double>(static_cast<qint64>(number)))
        return std::nullopt;
    return static_cast<quint32>(number);
}

std::optional<HotkeyConfig> decodeOne(const QJsonValue &element)
{
    if (!element.isObject())
        return std::nullopt;
    const QJsonObject object = element.toObject();
    const QJsonValue id = object.value(QLatin1String("id"));
    const QJsonValue language = object.value(QLatin1String("targetLanguage"));
    const QJsonValue enabled = object.value(QLatin1String("isEnabled"));
    const auto keyCode = toUInt32(object.value(QLatin1String("keyCode")));
    const auto modifiers = toUInt32(object.value(QLatin1String("modifiers")));
    if (!id.isString() || !language.isString() || !enabled.isBool() || !keyCode || !modifiers)
        return std::nullopt;
    // fromString gives the nil UUID for text that is not a UUID; the nil UUID itself is valid.
    const QUuid uuid = QUuid::fromString(id.toString());
    if (uuid.isNull() && id.toString() != QLatin1String("00000000-0000-0000-0000-000000000000"))
        return std::nullopt;
    return HotkeyConfig{uuid, language.toString(), *keyCode, *modifiers, enabled.toBool()};
}

} // namespace

QByteArray encodeHotkeyConfigs(const QList<HotkeyConfig> &configs)
{
    // Written by hand so that the keys keep the field order.
    QByteArray out = "[";
    for (qsizetype i = 0; i < configs.size(); ++i) {
        const HotkeyConfig &c = configs.at(i);
        if (i > 0)
            out += ',';
        const QByteArray language = QJsonDocument(QJsonArray{c.targetLanguage}).toJson(QJsonDocument::Compact);
        out += "{\"id\":\"" + c.id.toString(QUuid::WithoutBraces).toUpper().toLatin1() + "\""
            + ",\"targetLanguage\":" + language.mid(1, language.size() - 2)
            + ",\"keyCode\":" + QByteArray::number(c.keyCode)
            + ",\"modifiers\":" + QByteArray::number(c.modifiers)
            + ",\"isEnabled\":" + (c.isEnabled ? "true" : "false") + "}";
    }
    out += ']';
    return out;
}

std::optional<QList<HotkeyConfig>> decodeHotkeyConfigs(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    QList<HotkeyConfig> configs;
    for (const QJsonValue &element : document.array()) {
        const auto config = decodeOne(element);
        if (!config)
            return std::nullopt;
        configs.append(*config);
    }
    return configs;
}

QList<HotkeyConfig> defaultHotkeyConfigs()
{
    constexpr quint32 commandShift = Modifier::Command | Modifier::Shift;
    return {
        {QUuid::createUuid(), QStringLiteral("en"), 14, commandShift, true},
        {QUuid::createUuid(), QStringLiteral("vi"), 9, commandShift, true},
    };
}

QList<HotkeyConfig> loadHotkeyConfigs(SettingsStore &store)
{
    if (const auto data = store.dataValue(SettingsKeys::hotkeyConfigs)) {
        if (auto configs = decodeHotkeyConfigs(*data))
            return *configs;
    }
    return defaultHotkeyConfigs();
}

QList<HotkeyConfig> loadHotkeyConfigs()
{
    return loadHotkeyConfigs(SettingsStore::shared());
}

void saveHotkeyConfigs(SettingsStore &store, const QList<HotkeyConfig> &configs)
{
    store.setData(SettingsKeys::hotkeyConfigs, encodeHotkeyConfigs(configs));
}

void saveHotkeyConfigs(const QList<HotkeyConfig> &configs)
{
    saveHotkeyConfigs(SettingsStore::shared(), configs);
}
