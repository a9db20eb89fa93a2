#include "system/ApplicationChords.h"

#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"

#include <QHash>

namespace {

const KeyChord commandC{KeyCodes::C, Modifier::Command};
const KeyChord commandV{KeyCodes::V, Modifier::Command};
const KeyChord commandShiftV{KeyCodes::V, Modifier::Command | Modifier::Shift};

const ApplicationChords common{ApplicationChords::Capture::CopyShortcut, commandC, commandV};
// Terminals that paste the clipboard with Ctrl+Shift+V.
const ApplicationChords terminal{ApplicationChords::Capture::ActiveSelection, std::nullopt, commandShiftV};
// Terminals whose only paste key (Shift+Insert, the middle button) inserts the PRIMARY selection,
// not the clipboard: the text is typed into them.
const ApplicationChords typingTerminal{ApplicationChords::Capture::ActiveSelection, std::nullopt, std::nullopt};

// Keyed by lower-case window class (X11 WM_CLASS) or desktop-file id.
const QHash<QString, ApplicationChords> &table()
{
    static const QHash<QString, ApplicationChords> chords = [] {
        QHash<QString, ApplicationChords> t;
        for (const char *id : {"xterm", "uxterm", "urxvt", "rxvt", "urxvt-256color", "rxvt-unicode", "aterm",
                               "eterm", "debian-xterm", "debian-uxterm"})
            t.insert(QString::fromLatin1(id), typingTerminal);
        for (const char *id : {"gnome-terminal", "gnome-terminal-server", "org.gnome.terminal", "kgx",
                               "org.gnome.console", "org.gnome.ptyxis", "ptyxis", "konsole", "org.kde.konsole",
                               "yakuake", "org.kde.yakuake", "xfce4-terminal", "kitty", "alacritty",
                               "org.alacritty", "terminator", "tilix", "com.gexperts.tilix", "terminix",
                               "mate-terminal", "lxterminal", "qterminal", "terminology", "sakura", "guake",
                               "tilda", "st", "st-256color", "wezterm", "org.wezfurlong.wezterm", "foot",
                               "footclient", "roxterm", "termite", "cool-retro-term", "deepin-terminal",
                               "io.elementary.terminal", "com.raggesilver.blackbox", "blackbox"})
            t.insert(QString::fromLatin1(id), terminal);
        return t;
    }();
    return chords;
}

} // namespace

ApplicationChords chordsForApplication(const QString &applicationId)
{
    QString id = applicationId.trimmed().toLower();
    if (id.endsWith(QLatin1String(".desktop")))
        id.chop(8);
    return table().value(id, common);
}
