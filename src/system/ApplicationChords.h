#pragma once

#include "system/KeySynthesiser.h"

#include <QString>
#include <optional>

// How the selection is copied out of an application and a text pasted into it. Most applications
// take Command+C / Command+V (Ctrl on Linux). Terminal emulators are different: Ctrl+C interrupts
// the program running in them, so their selection is read from the selection the terminal sets
// when text is selected, and no copy keystroke is ever sent to them.
struct ApplicationChords {
    enum class Capture {
        CopyShortcut,      // send `copy` and read the clipboard
        ActiveSelection,   // read the active window's selection (X11 PRIMARY), send nothing
    };

    Capture capture = Capture::CopyShortcut;
    std::optional<KeyChord> copy;    // none: no copy keystroke may be sent to this application
    std::optional<KeyChord> paste;   // none: the text is typed instead of pasted

    friend bool operator==(const ApplicationChords &, const ApplicationChords &) = default;
};

// The chords for an application identifier: an X11 window class or desktop-file id
// ("xterm", "org.gnome.Terminal", "org.gnome.Terminal.desktop"), a macOS bundle identifier.
// Case does not matter; unknown and empty identifiers get the common Command+C / Command+V.
ApplicationChords chordsForApplication(const QString &applicationId);
