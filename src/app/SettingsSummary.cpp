#include "app/SettingsSummary.h"
#include "state/AppState.h"
#include "state/HotkeyConfig.h"

#include <QStringList>

namespace {
QString escaped(QString text)
{
    return text.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('\n'), QLatin1String("\\n"));
}
} // namespace

QString settingsSummary(const AppState &state, const QList<HotkeyConfig> &hotkeys)
{
    QStringList bindings;
    for (const HotkeyConfig &hotkey : hotkeys) {
        bindings << QStringLiteral("%1 key %2 modifiers 0x%3%4")
                        .arg(hotkey.targetLanguage)
                        .arg(hotkey.keyCode)
                        .arg(hotkey.modifiers, 0, 16)
                        .arg(hotkey.isEnabled ? QString() : QStringLiteral(" (disabled)"));
    }
    return QStringLiteral("auto_replace=%1 output_mode=%2 bilingual_template=\"%3\" default_language=%4 "
                          "inline_translation_enabled=%5 popup_dismiss_delay=%6 hotkeys=[%7]")
        .arg(state.autoReplace() ? QStringLiteral("true") : QStringLiteral("false"), rawValue(state.outputMode()),
             escaped(state.bilingualTemplate()), state.defaultLanguage(),
             state.inlineTranslationEnabled() ? QStringLiteral("true") : QStringLiteral("false"))
        .arg(state.popupDismissDelay())
        .arg(bindings.join(QStringLiteral(", ")));
}
