#include "state/AppState.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"

AppState::AppState(SettingsStore &store, QObject *parent)
    : QObject(parent)
{
    if (const auto raw = store.stringValue(SettingsKeys::outputMode)) {
        if (const auto mode = outputModeFromRawValue(*raw))
            m_outputMode = *mode;
    }
    if (const auto text = store.stringValue(SettingsKeys::bilingualTemplate); text && !text->isEmpty())
        m_bilingualTemplate = *text;
    if (const auto code = store.stringValue(SettingsKeys::defaultLanguage); code && !code->isEmpty())
        m_defaultLanguage = *code;
    m_inlineTranslationEnabled = store.boolValue(SettingsKeys::inlineTranslationEnabled).value_or(false);
    if (const auto delay = store.numberValue(SettingsKeys::popupDismissDelay))
        m_popupDismissDelay = *delay;
}

AppState &AppState::shared()
{
    static AppState *instance = new AppState(SettingsStore::shared());
    return *instance;
}

bool AppState::storedAutoReplace(const SettingsStore &store)
{
    return store.boolValue(SettingsKeys::autoReplace).value_or(true);
}

#define PARLANTO_SETTER(Setter, member, Signal)                                                     \
    void AppState::Setter(decltype(member) value)                                                   \
    {                                                                                               \
        if (member == value)                                                                        \
            return;                                                                                 \
        member = value;                                                                             \
        Q_EMIT Signal(member);                                                                      \
    }

PARLANTO_SETTER(setIsTranslating, m_isTranslating, isTranslatingChanged)
PARLANTO_SETTER(setAutoReplace, m_autoReplace, autoReplaceChanged)
PARLANTO_SETTER(setOutputMode, m_outputMode, outputModeChanged)
PARLANTO_SETTER(setIsAccessibilityGranted, m_isAccessibilityGranted, isAccessibilityGrantedChanged)
PARLANTO_SETTER(setSettingsTabSelection, m_settingsTabSelection, settingsTabSelectionChanged)
PARLANTO_SETTER(setInlineTranslationEnabled, m_inlineTranslationEnabled, inlineTranslationEnabledChanged)
PARLANTO_SETTER(setPopupDismissDelay, m_popupDismissDelay, popupDismissDelayChanged)
PARLANTO_SETTER(setQuotaRemaining, m_quotaRemaining, quotaRemainingChanged)
#undef PARLANTO_SETTER

void AppState::setBilingualTemplate(const QString &value)
{
    if (m_bilingualTemplate == value)
        return;
    m_bilingualTemplate = value;
    Q_EMIT bilingualTemplateChanged(m_bilingualTemplate);
}

void AppState::setDefaultLanguage(const QString &value)
{
    if (m_defaultLanguage == value)
        return;
    m_defaultLanguage = value;
    Q_EMIT defaultLanguageChanged(m_defaultLanguage);
}
