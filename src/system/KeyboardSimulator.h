#pragma once

#include "system/KeySynthesiser.h"

#include <QString>
#include <QCoro/QCoroTask>
#include <memory>

// Makes the frontmost application believe that the user pressed keys: copy, paste, Delete,
// Right Arrow, and typing a text. Which copy and paste keys an application gets comes from its
// chords (system/ApplicationChords.h). Main thread only.
class KeyboardSimulator
{
public:
    explicit KeyboardSimulator(std::unique_ptr<KeySynthesiser> synthesiser);

    // The process-wide simulator, on the system's synthesiser unless one was installed (before
    // or after first use: the shared object stays the same).
    static KeyboardSimulator &shared();
    static void setSharedBackend(std::unique_ptr<KeySynthesiser> synthesiser);

    // Command (Ctrl on Linux) + keyCode, down then up.
    QCoro::Task<> sendCommandShortcut(quint32 keyCode);
    // The application's copy / paste keys. False, with nothing sent, when the application gets
    // none (no copy key is ever sent to a terminal; a text is typed into some instead of pasted).
    QCoro::Task<bool> simulateCopy(QString applicationId = {});
    QCoro::Task<bool> simulatePaste(QString applicationId = {});
    // count presses of Delete (backspace); nothing below 1.
    QCoro::Task<> deleteCharacters(int count);
    QCoro::Task<> pressRightArrow();
    // Until the user has let go of the keys they hold (see KeySynthesiser::waitForKeysUp).
    QCoro::Task<> waitForKeysUp();
    // Extends the selection from the caret to the start of its line: Shift+Home on Linux,
    // Shift+Command+Left Arrow on macOS.
    QCoro::Task<> selectToLineStart();

    // The second paste method (see KeySynthesiser::typeText).
    bool typesFromClipboard() const;
    QCoro::Task<bool> typeText(QString text);

private:
    std::unique_ptr<KeySynthesiser> m_synthesiser;
};
