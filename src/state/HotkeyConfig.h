#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class SettingsStore;

// Modifier mask bits, in the Carbon hot-key convention kept everywhere (also on Linux, where
// Command means Ctrl, Option means Alt and Control means Super).
namespace Modifier {
inline constexpr quint32 Command = 0x100;
inline constexpr quint32 Shift = 0x200;
inline constexpr quint32 Option = 0x800;
inline constexpr quint32 Control = 0x1000;
inline constexpr quint32 All = Command | Shift | Option | Control;
}

// One global hotkey binding. Key codes are macOS virtual key codes (ANSI positions).
struct HotkeyConfig {
    QUuid id;
    QString targetLanguage;
    quint32 keyCode = 0;
    quint32 modifiers = 0;
    bool isEnabled = true;

    friend bool operator==(const HotkeyConfig &, const HotkeyConfig &) = default;
};

// The JSON form: a compact array of objects with exactly the five field names as keys.
// Decoding fails as a whole when any element lacks a key or holds a value of the wrong type.
QByteArray encodeHotkeyConfigs(const QList<HotkeyConfig> &configs);
std::optional<QList<HotkeyConfig>> decodeHotkeyConfigs(const QByteArray &json);

// Command-Shift-E into English and Command-Shift-V into Vietnamese, each with a fresh id.
QList<HotkeyConfig> defaultHotkeyConfigs();

// The stored list ("hotkey_configs"), or the defaults when it is absent or does not decode.
QList<HotkeyConfig> loadHotkeyConfigs(SettingsStore &store);
QList<HotkeyConfig> loadHotkeyConfigs();
void saveHotkeyConfigs(SettingsStore &store, const QList<HotkeyConfig> &configs);
void saveHotkeyConfigs(const QList<HotkeyConfig> &configs);
