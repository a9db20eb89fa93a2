#pragma once

#include <QObject>
#include <functional>
#include <memory>

// The system's global hot keys, one key + modifiers (canonical form: a macOS virtual key code
// and a Carbon modifier mask) under an identifier chosen by the caller. All calls on the main
// thread.
//
// A registration normally completes at once (accepted or refused). A desktop that asks the user
// or assigns keys itself may answer later: it then reports Pending and, should it refuse after
// all, emits registrationFailed.
class HotkeyRegistrar : public QObject
{
    Q_OBJECT
public:
    enum class Outcome { Registered, Pending, Failed };
    struct Result {
        Outcome outcome = Outcome::Failed;
        int status = 0;  // the system's status code; 0 unless refused
    };

    // Called for each press of a registered key with its identifier; answers whether it was ours
    // to handle. Never called for another application's hot keys.
    using PressHandler = std::function<bool(quint32 id)>;

    using QObject::QObject;
    ~HotkeyRegistrar() override = default;

    // Starts delivering presses to the handler; 0 or the system's status code.
    virtual int installHandler(PressHandler handler) = 0;
    virtual void removeHandler() = 0;

    virtual Result registerHotkey(quint32 id, quint32 keyCode, quint32 modifiers) = 0;
    // Removes one of our own registrations; an unknown identifier is ignored.
    virtual void unregisterHotkey(quint32 id) = 0;

    // Whether the key of a hot key that fired is still down. Where a held hot key diverts the
    // keyboard (an X11 grab sends every key, synthesised ones too, to its owner until the key is
    // released), keys meant for another application must wait for the release.
    virtual bool isHotkeyHeld() const { return false; }

Q_SIGNALS:
    // A held hot key was released (only where isHotkeyHeld() can be true).
    void hotkeyReleased(quint32 id);
    // A Pending registration was refused after all.
    void registrationFailed(quint32 id, int status);
};

// This system's registrar: key grabs on the X11 root window, or Carbon hot keys on macOS.
// Needs the GUI application object.
std::unique_ptr<HotkeyRegistrar> createSystemHotkeyRegistrar();
