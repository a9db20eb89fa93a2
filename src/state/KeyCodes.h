#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>

// Keys in their one canonical form: a macOS virtual key code (the ANSI keyboard's positions,
// 0 = A, 8 = C, 9 = V, 14 = E, 36 = Return, 49 = Space, 51 = Delete, 53 = Escape, 76 = keypad
// Enter, 123-126 = the arrows) plus a Carbon modifier mask (Modifier:: in HotkeyConfig.h).
//
// On Linux a key code stands for the same PHYSICAL key, whatever the layout: it is translated
// to and from the kernel's evdev code of that key position (an X11 key code is evdev + 8).
// The modifier keys themselves follow the modifier convention instead of their position:
// Command is Ctrl, Option is Alt and Control is Super, so the key code of a held modifier key
// always agrees with the mask bit it sets.
namespace KeyCodes {

inline constexpr quint32 A = 0;
inline constexpr quint32 C = 8;
inline constexpr quint32 V = 9;
inline constexpr quint32 E = 14;
inline constexpr quint32 Return = 36;
inline constexpr quint32 Tab = 48;
inline constexpr quint32 Space = 49;
inline constexpr quint32 Delete = 51;
inline constexpr quint32 Escape = 53;
inline constexpr quint32 KeypadEnter = 76;
inline constexpr quint32 LeftArrow = 123;
inline constexpr quint32 RightArrow = 124;
inline constexpr quint32 DownArrow = 125;
inline constexpr quint32 UpArrow = 126;

// X11 key codes are the kernel's evdev codes shifted by this much.
inline constexpr quint32 x11KeycodeOffset = 8;

// The evdev code of the key at this key code's position; none for codes without a key.
std::optional<quint32> evdevFromKeyCode(quint32 keyCode);
// The key code of the key at this evdev position; none for keys the canonical form lacks.
std::optional<quint32> keyCodeFromEvdev(quint32 evdev);
std::optional<quint32> x11KeycodeFromKeyCode(quint32 keyCode);
std::optional<quint32> keyCodeFromX11Keycode(quint32 x11Keycode);

// How shortcuts are written: modifier symbols (⌘⌥⌃⇧) and key symbols as macOS shows them, or
// words ("Ctrl+Alt+Super+Shift+E") as Linux desktops do. Native is this system's style.
enum class Style { Symbols, Words };
Style nativeStyle();

// The name of a key as shown in a shortcut ("E", "F1", "Space", "↩" / "Return"). Keys without
// a name of their own show as "Key" followed by the code ("Key123").
QString keyName(quint32 keyCode, Style style = nativeStyle());

// The text of a shortcut. Modifiers always come in the order Command, Option, Control, Shift,
// then the key: "⌘⌥⌃⇧E" with symbols, "Ctrl+Alt+Super+Shift+E" with words.
QString shortcutDisplayText(quint32 keyCode, quint32 modifiers, Style style = nativeStyle());

} // namespace KeyCodes
