#pragma once

#include <QString>

// Every key of the settings store.
namespace SettingsKeys {
inline const QString hotkeyConfigs = QStringLiteral("hotkey_configs");
inline const QString autoReplace = QStringLiteral("auto_replace");
inline const QString outputMode = QStringLiteral("output_mode");
inline const QString bilingualTemplate = QStringLiteral("bilingual_template");
inline const QString defaultLanguage = QStringLiteral("default_language");
inline const QString inlineTranslationEnabled = QStringLiteral("inline_translation_enabled");
inline const QString popupDismissDelay = QStringLiteral("popup_dismiss_delay");
inline const QString hasLaunchedBefore = QStringLiteral("has_launched_before");

// Translation engines (API keys are never stored here: they live in the credential store).
inline const QString translationEngine = QStringLiteral("translation_engine");
inline const QString deeplUrl = QStringLiteral("deepl_url");
inline const QString libretranslateUrl = QStringLiteral("libretranslate_url");
inline const QString openaiUrl = QStringLiteral("openai_url");
inline const QString openaiModel = QStringLiteral("openai_model");
}
