#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// The names of the engines, as settings, the environment and the command line spell them.
namespace EngineIds {
inline const QString service = QStringLiteral("service");
inline const QString offline = QStringLiteral("offline");
inline const QString deepl = QStringLiteral("deepl");
inline const QString libretranslate = QStringLiteral("libretranslate");
inline const QString openai = QStringLiteral("openai");
}

// Which engine translates, and where each engine finds its server, model and key. Every value
// is read afresh on each call, so a changed setting applies to the next request. The
// environment overrides the settings store (for scripts and tests):
//   PARLANTO_ENGINE, PARLANTO_DEEPL_URL, PARLANTO_LIBRETRANSLATE_URL, PARLANTO_OPENAI_URL,
//   PARLANTO_OPENAI_MODEL (a variable that is set but empty counts as unset).
// API keys live in the credential store under their own accounts; the environment's
// PARLANTO_DEEPL_KEY, PARLANTO_LIBRETRANSLATE_KEY and PARLANTO_OPENAI_KEY are used only where
// allowKeysFromEnvironment() was called (the command line).
class EngineSettings
{
public:
    static inline const QString defaultLibreTranslateUrl = QStringLiteral("https://libretranslate.com");
    static inline const QString defaultOpenAiUrl = QStringLiteral("https://api.openai.com/v1");
    static inline const QString defaultOpenAiModel = QStringLiteral("gpt-4o-mini");
    static inline const QString deepLFreeUrl = QStringLiteral("https://api-free.deepl.com");
    static inline const QString deepLProUrl = QStringLiteral("https://api.deepl.com");

    // Every engine, in the order they are listed to the user.
    static const QStringList &engineIds();
    static bool isKnownEngine(const QString &id);

    // $PARLANTO_ENGINE as it is (even when it names no engine, so that a typo is reported
    // rather than ignored); else "translation_engine" when it names an engine; else the default.
    static QString selectedEngine();
    // "service" when a service URL is configured (built in, or $PARLANTO_SERVICE_URL present in
    // the environment, even empty), "offline" otherwise.
    static QString defaultEngine();

    // DeepL's base URL: the override ("deepl_url") when there is one, else the free API's host
    // for a key ending in ":fx" and the paid API's host for any other.
    static QString deepLUrl(const QString &apiKey);
    static QString libreTranslateUrl();
    static QString openAiUrl();
    static QString openAiModel();
    // Whether the user pointed the engine at a server of their own (setting or environment).
    static bool hasLibreTranslateUrl();
    static bool hasOpenAiUrl();

    // The credential-store account of an engine's API key ("deepl_api_key", ...); empty for
    // engines without one.
    static QString keyAccount(const QString &engineId);
    // The engine's key: from the environment when allowed and set, else from the credential
    // store; none when absent or empty.
    static std::optional<QString> apiKey(const QString &engineId);
    static void allowKeysFromEnvironment(bool allowed);
};
