#pragma once

#include <QString>
#include <QtGlobal>
#include <QCoro/QCoroTask>
#include <memory>

// A key with the modifiers held while it is pressed, in the canonical form: a macOS virtual key
// code and a Carbon modifier mask (Modifier:: in state/HotkeyConfig.h; on Linux Command is Ctrl,
// Option is Alt and Control is Super).
struct KeyChord {
    quint32 keyCode = 0;
    quint32 modifiers = 0;

    friend bool operator==(const KeyChord &, const KeyChord &) = default;
};

// What the system must offer to make the frontmost application believe that the user pressed
// keys. The operations complete once the events are on their way; on systems where the user's
// own held keys would otherwise mix into them, they first wait (briefly, bounded) for those keys
// to be released.
class KeySynthesiser
{
public:
    virtual ~KeySynthesiser() = default;

    // Presses and releases chord.keyCode with exactly chord.modifiers held: no modifier the user
    // still holds is added. Letter keys go out as the key that types that letter in the keyboard
    // layout active at this moment.
    virtual QCoro::Task<> pressChord(KeyChord chord) = 0;

    // Presses and releases keyCode (Delete, the arrows...) count times, without modifiers.
    virtual QCoro::Task<> pressKey(quint32 keyCode, int count) = 0;

    // The second way to put a text into the focused field, for when the paste shortcut does not
    // reach it. Where it still goes through the clipboard (macOS: System Events presses Command+V),
    // the caller puts the text there first and typesFromClipboard() is true; elsewhere the text
    // itself is typed key by key. True when everything went out.
    virtual bool typesFromClipboard() const = 0;
    virtual QCoro::Task<bool> typeText(QString text) = 0;

    // Waits (briefly, bounded) until the user has let go of the keys they hold, such as the
    // hotkey that started a flow. On X11 the focused application gives up its focus while a
    // grabbed hotkey is down, so what has the focus is only known once it is up. At once where
    // the system needs no such wait.
    virtual QCoro::Task<> waitForKeysUp() { co_return; }
};

// This system's synthesiser: XTest on X11, Quartz events (and System Events) on macOS.
std::unique_ptr<KeySynthesiser> createSystemKeySynthesiser();
