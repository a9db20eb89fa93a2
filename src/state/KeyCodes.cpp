#include "state/KeyCodes.h"
#include "state/HotkeyConfig.h"

#include <QStringList>

namespace KeyCodes {
namespace {

struct Key {
    quint32 code;      // macOS virtual key code
    quint32 evdev;     // Linux input event code of the same position (0: none)
    const char *name;  // shown on macOS (nullptr: "Key<code>")
    const char *word;  // shown on Linux when it differs from name (nullptr: same as name)
};

// Every key of the ANSI keyboard plus the extra keys of ISO and JIS keyboards and the extended
// keys (F13-F20, Help/Insert, Home, End, Page Up/Down, Forward Delete, arrows).
constexpr Key keys[] = {
    {0, 30, "A", nullptr},
    {1, 31, "S", nullptr},
    {2, 32, "D", nullptr},
    {3, 33, "F", nullptr},
    {4, 35, "H", nullptr},
    {5, 34, "G", nullptr},
    {6, 44, "Z", nullptr},
    {7, 45, "X", nullptr},
    {8, 46, "C", nullptr},
    {9, 47, "V", nullptr},
    {10, 86, nullptr, nullptr},  // ISO: the extra key beside the left Shift
    {11, 48, "B", nullptr},
    {12, 16, "Q", nullptr},
    {13, 17, "W", nullptr},
    {14, 18, "E", nullptr},
    {15, 19, "R", nullptr},
    {16, 21, "Y", nullptr},
    {17, 20, "T", nullptr},
    {18, 2, "1", nullptr},
    {19, 3, "2", nullptr},
    {20, 4, "3", nullptr},
    {21, 5, "4", nullptr},
    {22, 7, "6", nullptr},
    {23, 6, "5", nullptr},
    {24, 13, "=", nullptr},
    {25, 10, "9", nullptr},
    {26, 8, "7", nullptr},
    {27, 12, "-", nullptr},
    {28, 9, "8", nullptr},
    {29, 11, "0", nullptr},
    {30, 27, "]", nullptr},
    {31, 24, "O", nullptr},
    {32, 22, "U", nullptr},
    {33, 26, "[", nullptr},
    {34, 23, "I", nullptr},
    {35, 25, "P", nullptr},
    {36, 28, "\u21A9", "Return"},
    {37, 38, "L", nullptr},
    {38, 36, "J", nullptr},
    {39, 40, "'", nullptr},
    {40, 37, "K", nullptr},
    {41, 39, ";", nullptr},
    {42, 43, "\\", nullptr},
    {43, 51, ",", nullptr},
    {44, 53, "/", nullptr},
    {45, 49, "N", nullptr},
    {46, 50, "M", nullptr},
    {47, 52, ".", nullptr},
    {48, 15, "\u21E5", "Tab"},
    {49, 57, "Space", nullptr},
    {50, 41, "`", nullptr},
    {51, 14, "\u232B", "Backspace"},
    {53, 1, "\u238B", "Esc"},
    // Modifier keys, by role: Command = Ctrl, Option = Alt, Control = Super.
    {54, 97, nullptr, nullptr},   // right Command: right Ctrl
    {55, 29, nullptr, nullptr},   // Command: left Ctrl
    {56, 42, nullptr, nullptr},   // Shift
    {57, 58, nullptr, nullptr},   // Caps Lock
    {58, 56, nullptr, nullptr},   // Option: left Alt
    {59, 125, nullptr, nullptr},  // Control: left Super
    {60, 54, nullptr, nullptr},   // right Shift
    {61, 100, nullptr, nullptr},  // right Option: right Alt (AltGr)
    {62, 126, nullptr, nullptr},  // right Control: right Super
    {64, 187, nullptr, "F17"},
    {65, 83, ".", nullptr},
    {67, 55, "*", nullptr},
    {69, 78, "+", nullptr},
    {71, 69, "Clear", "NumLock"},  // keypad Clear sits where PC keyboards have Num Lock
    {72, 115, nullptr, nullptr},   // volume up
    {73, 114, nullptr, nullptr},   // volume down
    {74, 113, nullptr, nullptr},   // mute
    {75, 98, "/", nullptr},
    {76, 96, "\u21A9", "Enter"},
    {78, 74, "-", nullptr},
    {79, 188, nullptr, "F18"},
    {80, 189, nullptr, "F19"},
    {81, 117, "=", nullptr},
    {82, 82, "0", nullptr},
    {83, 79, "1", nullptr},
    {84, 80, "2", nullptr},
    {85, 81, "3", nullptr},
    {86, 75, "4", nullptr},
    {87, 76, "5", nullptr},
    {88, 77, "6", nullptr},
    {89, 71, "7", nullptr},
    {90, 190, nullptr, "F20"},
    {91, 72, "8", nullptr},
    {92, 73, "9", nullptr},
    {93, 124, nullptr, nullptr},   // JIS Yen
    {94, 89, nullptr, nullptr},    // JIS underscore (Ro)
    {95, 121, nullptr, nullptr},   // JIS keypad comma
    {96, 63, "F5", nullptr},
    {97, 64, "F6", nullptr},
    {98, 65, "F7", nullptr},
    {99, 61, "F3", nullptr},
    {100, 66, "F8", nullptr},
    {101, 67, "F9", nullptr},
    {102, 123, nullptr, nullptr},  // JIS Eisu (Hanja position)
    {103, 87, "F11", nullptr},
    {104, 122, nullptr, nullptr},  // JIS Kana (Hangul position)
    {105, 183, nullptr, "F13"},
    {106, 186, nullptr, "F16"},
    {107, 184, nullptr, "F14"},
    {109, 68, "F10", nullptr},
    {110, 127, nullptr, "Menu"},   // context menu key
    {111, 88, "F12", nullptr},
    {113, 185, nullptr, "F15"},
    {114, 110, nullptr, "Ins"},    // Help sits where PC keyboards have Insert
    {115, 102, nullptr, "Home"},
    {116, 104, nullptr, "PgUp"},
    {117, 111, nullptr, "Del"},    // forward delete
    {118, 62, "F4", nullptr},
    {119, 107, nullptr, "End"},
    {120, 60, "F2", nullptr},
    {121, 109, nullptr, "PgDown"},
    {122, 59, "F1", nullptr},
    {123, 105, nullptr, "Left"},
    {124, 106, nullptr, "Right"},
    {125, 108, nullptr, "Down"},
    {126, 103, nullptr, "Up"},
};

// Evdev codes that are the same key as a code above under another name.
constexpr struct {
    quint32 evdev;
    quint32 code;
} evdevAliases[] = {
    {138, 114},  // KEY_HELP
};

const Key *findKey(quint32 code)
{
    for (const Key &key : keys) {
        if (key.code == code)
            return &key;
    }
    return nullptr;
}

} // namespace

std::optional<quint32> evdevFromKeyCode(quint32 keyCode)
{
    if (const Key *key = findKey(keyCode))
        return key->evdev;
    return std::nullopt;
}

std::optional<quint32> keyCodeFromEvdev(quint32 evdev)
{
    for (const Key &key : keys) {
        if (key.evdev == evdev)
            return key.code;
    }
    for (const auto &alias : evdevAliases) {
        if (alias.evdev == evdev)
            return alias.code;
    }
    return std::nullopt;
}

std::optional<quint32> x11KeycodeFromKeyCode(quint32 keyCode)
{
    const auto evdev = evdevFromKeyCode(keyCode);
    // The X11 protocol carries key codes 8-255 only.
    if (!evdev || *evdev + x11KeycodeOffset > 255)
        return std::nullopt;
    return *evdev + x11KeycodeOffset;
}

std::optional<quint32> keyCodeFromX11Keycode(quint32 x11Keycode)
{
    if (x11Keycode < x11KeycodeOffset)
        return std::nullopt;
    return keyCodeFromEvdev(x11Keycode - x11KeycodeOffset);
}

Style nativeStyle()
{
#ifdef Q_OS_MACOS
    return Style::Symbols;
#else
    return Style::Words;
#endif
}

QString keyName(quint32 keyCode, Style style)
{
    if (const Key *key = findKey(keyCode)) {
        const char *name = style == Style::Words && key->word ? key->word : key->name;
        if (name)
            return QString::fromUtf8(name);
    }
    return QStringLiteral("Key") + QString::number(keyCode);
}

QString shortcutDisplayText(quint32 keyCode, quint32 modifiers, Style style)
{
    struct Part {
        quint32 bit;
        const char *symbol;
        const char *word;
    };
    static constexpr Part order[] = {
        {Modifier::Command, "\u2318", "Ctrl"},
        {Modifier::Option, "\u2325", "Alt"},
        {Modifier::Control, "\u2303", "Super"},
        {Modifier::Shift, "\u21E7", "Shift"},
    };
    QStringList parts;
    for (const Part &part : order) {
        if (modifiers & part.bit)
            parts << QString::fromUtf8(style == Style::Symbols ? part.symbol : part.word);
    }
    parts << keyName(keyCode, style);
    return parts.join(style == Style::Symbols ? QString() : QStringLiteral("+"));
}

} // namespace KeyCodes
