#include "service/EngineSettings.h"

#include "BuildConfig.h"
#include "service/KeychainStore.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"

#include <atomic>

namespace {

std::atomic_bool keysFromEnvironment{false};

// A variable that is set but empty counts as unset.
std::optional<QString> environmentValue(const char *name)
{
    QString value = qEnvironmentVariable(name).trimmed();
    if (value.isEmpty())
        return std::nullopt;
    return value;
}

std::optional<QString> storedString(const QString &key)
{
    const auto value = SettingsStore::shared().stringValue(key);
    if (!value || value->trimmed().isEmpty())
        return std::nullopt;
    return value->trimmed();
}

std::optional<QString> configuredValue(const char *variable, const QString &key)
{
    if (auto value = environmentValue(variable))
        return value;
    return storedString(key);
}

} // namespace

const QStringList &EngineSettings::engineIds()
{
    static const QStringList ids{EngineIds::service, EngineIds::offline, EngineIds::deepl, EngineIds::libretranslate,
                                 EngineIds::openai};
    return ids;
}

bool EngineSettings::isKnownEngine(const QString &id)
{
    return engineIds().contains(id);
}

QString EngineSettings::selectedEngine()
{
    if (auto chosen = environmentValue("PARLANTO_ENGINE"))
        return chosen->toLower();
    if (auto stored = storedString(SettingsKeys::translationEngine); stored && isKnownEngine(stored->toLower()))
        return stored->toLower();
    return defaultEngine();
}

QString EngineSettings::defaultEngine()
{
    // An explicit service URL in the environment, even an empty one, asks for the service: the
    // caller then gets the service's own "not configured" answer instead of another engine.
    const bool serviceConfigured =
        qEnvironmentVariableIsSet("PARLANTO_SERVICE_URL") || !QString::fromUtf8(BuildConfig::serviceUrl).trimmed().isEmpty();
    return serviceConfigured ? EngineIds::service : EngineIds::offline;
}

QString EngineSettings::deepLUrl(const QString &apiKey)
{
    if (auto url = configuredValue("PARLANTO_DEEPL_URL", SettingsKeys::deeplUrl))
        return *url;
    return apiKey.trimmed().endsWith(QLatin1String(":fx")) ? deepLFreeUrl : deepLProUrl;
}

QString EngineSettings::libreTranslateUrl()
{
    return configuredValue("PARLANTO_LIBRETRANSLATE_URL", SettingsKeys::libretranslateUrl).value_or(defaultLibreTranslateUrl);
}

QString EngineSettings::openAiUrl()
{
    return configuredValue("PARLANTO_OPENAI_URL", SettingsKeys::openaiUrl).value_or(defaultOpenAiUrl);
}

QString EngineSettings::openAiModel()
{
    return configuredValue("PARLANTO_OPENAI_MODEL", SettingsKeys::openaiModel).value_or(defaultOpenAiModel);
}

bool EngineSettings::hasLibreTranslateUrl()
{
    return configuredValue("PARLANTO_LIBRETRANSLATE_URL", SettingsKeys::libretranslateUrl).has_value();
}

bool EngineSettings::hasOpenAiUrl()
{
    return configuredValue("PARLANTO_OPENAI_URL", SettingsKeys::openaiUrl).has_value();
}

QString EngineSettings::keyAccount(const QString &engineId)
{
    if (engineId == EngineIds::deepl)
        return QStringLiteral("deepl_api_key");
    if (engineId == EngineIds::libretranslate)
        return QStringLiteral("libretranslate_api_key");
    if (engineId == EngineIds::openai)
        return QStringLiteral("openai_api_key");
    return {};
}

std::optional<QString> EngineSettings::apiKey(const QString &engineId)
{
    const QString account = keyAccount(engineId);
    if (account.isEmpty())
        return std::nullopt;
    if (keysFromEnvironment) {
        const QByteArray variable = "PARLANTO_" + engineId.toUpper().toLatin1() + "_KEY";
        if (auto key = environmentValue(variable.constData()))
            return key;
    }
    // Keys pasted into a terminal often bring a line break along.
    const auto stored = KeychainStore::shared().load(account);
    if (!stored || stored->trimmed().isEmpty())
        return std::nullopt;
    return stored->trimmed();
}

void EngineSettings::allowKeysFromEnvironment(bool allowed)
{
    keysFromEnvironment = allowed;
}
