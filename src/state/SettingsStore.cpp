#include "state/SettingsStore.h"
#include "state/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>
#include <QStandardPaths>

#ifdef Q_OS_MACOS
#include <QSettings>
#endif

namespace {

std::unique_ptr<SettingsStore> &sharedStore()
{
    static std::unique_ptr<SettingsStore> store;
    return store;
}

void log(const QString &line)
{
    logLine("Settings", line);
}

const QLatin1StringView dataTag{"data"};

} // namespace

SettingsStore &SettingsStore::shared()
{
    auto &store = sharedStore();
    if (!store) {
#ifdef Q_OS_MACOS
        store = std::make_unique<NativeSettingsStore>();
#else
        store = std::make_unique<JsonSettingsStore>(JsonSettingsStore::defaultFilePath());
#endif
    }
    return *store;
}

void SettingsStore::setShared(std::unique_ptr<SettingsStore> store)
{
    sharedStore() = std::move(store);
}

// ---- JsonSettingsStore

JsonSettingsStore::JsonSettingsStore(QString filePath)
    : m_filePath(std::move(filePath))
{
    load();
}

QString JsonSettingsStore::defaultFilePath()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return base + QStringLiteral("/parlanto/settings.json");
}

void JsonSettingsStore::load()
{
    QFile file(m_filePath);
    if (!file.exists())
        return;
    if (!file.open(QIODevice::ReadOnly)) {
        // Present but unreadable: keep it as it is and do not write over it.
        m_writable = false;
        log(QStringLiteral("cannot read %1 (%2); using defaults and leaving the file untouched")
                .arg(m_filePath, file.errorString()));
        return;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && document.isObject()) {
        m_values = document.object();
        return;
    }
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = m_filePath + QStringLiteral(".unreadable-") + stamp;
    for (int n = 2; QFileInfo::exists(aside); ++n)
        aside = m_filePath + QStringLiteral(".unreadable-") + stamp + QLatin1Char('-') + QString::number(n);
    if (QFile::rename(m_filePath, aside)) {
        m_movedAside = aside;
        log(QStringLiteral("%1 could not be parsed; moved aside to %2, using defaults").arg(m_filePath, aside));
    } else {
        m_writable = false;
        log(QStringLiteral("%1 could not be parsed nor moved aside; using defaults and leaving it untouched")
                .arg(m_filePath));
    }
}

void JsonSettingsStore::persist()
{
    if (!m_writable)
        return;
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly)) {
        log(QStringLiteral("cannot write %1: %2").arg(m_filePath, file.errorString()));
        return;
    }
    file.write(QJsonDocument(m_values).toJson(QJsonDocument::Indented));
    if (!file.commit())
        log(QStringLiteral("cannot write %1: %2").arg(m_filePath, file.errorString()));
}

std::optional<bool> JsonSettingsStore::boolValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<double> JsonSettingsStore::numberValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    return value.isDouble() ? std::optional(value.toDouble()) : std::nullopt;
}

std::optional<QString> JsonSettingsStore::stringValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

std::optional<QByteArray> JsonSettingsStore::dataValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QJsonValue encoded = object.value(dataTag);
    if (object.size() != 1 || !encoded.isString())
        return std::nullopt;
    auto decoded = QByteArray::fromBase64Encoding(encoded.toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return *decoded;
}

void JsonSettingsStore::set(const QString &key, const QJsonValue &value)
{
    m_values.insert(key, value);
    persist();
}

void JsonSettingsStore::setBool(const QString &key, bool value) { set(key, value); }
void JsonSettingsStore::setNumber(const QString &key, double value) { set(key, value); }
void JsonSettingsStore::setString(const QString &key, const QString &value) { set(key, value); }

void JsonSettingsStore::setData(const QString &key, const QByteArray &value)
{
    set(key, QJsonObject{{dataTag, QString::fromLatin1(value.toBase64())}});
}

void JsonSettingsStore::remove(const QString &key)
{
    m_values.remove(key);
    persist();
}

// ---- NativeSettingsStore

#ifdef Q_OS_MACOS
struct NativeSettingsStore::Private {
    QSettings settings{QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("parlanto.app"),
                       QStringLiteral("Parlanto")};
    QVariant value(const QString &key) const { return settings.value(key); }
};

NativeSettingsStore::NativeSettingsStore()
    : d(std::make_unique<Private>())
{
}

NativeSettingsStore::~NativeSettingsStore() = default;

std::optional<bool> NativeSettingsStore::boolValue(const QString &key) const
{
    const QVariant v = d->value(key);
    return v.typeId() == QMetaType::Bool ? std::optional(v.toBool()) : std::nullopt;
}

std::optional<double> NativeSettingsStore::numberValue(const QString &key) const
{
    const QVariant v = d->value(key);
    switch (v.typeId()) {
    case QMetaType::Int: case QMetaType::UInt: case QMetaType::LongLong: case QMetaType::ULongLong:
    case QMetaType::Double: case QMetaType::Float:
        return v.toDouble();
    default:
        return std::nullopt;
    }
}

std::optional<QString> NativeSettingsStore::stringValue(const QString &key) const
{
    const QVariant v = d->value(key);
    return v.typeId() == QMetaType::QString ? std::optional(v.toString()) : std::nullopt;
}

std::optional<QByteArray> NativeSettingsStore::dataValue(const QString &key) const
{
    const QVariant v = d->value(key);
    return v.typeId() == QMetaType::QByteArray ? std::optional(v.toByteArray()) : std::nullopt;
}

void NativeSettingsStore::setBool(const QString &key, bool value) { d->settings.setValue(key, value); d->settings.sync(); }
void NativeSettingsStore::setNumber(const QString &key, double value) { d->settings.setValue(key, value); d->settings.sync(); }
void NativeSettingsStore::setString(const QString &key, const QString &value) { d->settings.setValue(key, value); d->settings.sync(); }
void NativeSettingsStore::setData(const QString &key, const QByteArray &value) { d->settings.setValue(key, value); d->settings.sync(); }
void NativeSettingsStore::remove(const QString &key) { d->settings.remove(key); d->settings.sync(); }
#endif
