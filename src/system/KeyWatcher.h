#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>
#include <memory>

// One key pressed anywhere on the desktop, in the canonical form of state/KeyCodes.h.
struct KeyPress
{
    static constexpr quint32 noKeyCode = 0xFFFFFFFFu;

    quint32 keyCode = noKeyCode; // canonical key code; noKeyCode for keys the canonical form lacks
    quint32 modifiers = 0;       // Carbon mask of the modifiers held (Modifier:: in state/HotkeyConfig.h)
    QString text;                // what the key types in the layout of the moment; empty for none
};

// Listens to every key the user presses, in whichever application, without taking it away from
// that application. Keys this process synthesises itself (see SynthesisedKeys) are left out.
// Main thread only; the handler runs on the main thread, once per key press, in order.
class KeyWatcher
{
public:
    using Handler = std::function<void(const KeyPress &)>;

    virtual ~KeyWatcher() = default;

    // Starts delivering key presses to handler. False when the system refuses (no display, no
    // XInput 2; no event tap on macOS): nothing is delivered then.
    virtual bool start(Handler handler) = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
};

// This system's key watcher: XInput 2 raw key events on X11, a listen-only event tap on macOS.
std::unique_ptr<KeyWatcher> createSystemKeyWatcher();

// The keys this process sends through a key synthesiser, so that a key watcher can tell them
// from the user's typing when the system does not (XTest events, like those of any other XTest
// client, carry no mark). A synthesiser notes each key press it sends by the system's own key
// code; the watcher takes a matching press out once. Nothing is noted while no watcher runs, and
// a note that no event answered within a second is forgotten. Main thread only.
namespace SynthesisedKeys {
void notePress(quint32 nativeKeyCode);
bool takePress(quint32 nativeKeyCode);
// Watchers announce themselves while they run.
void setWatching(bool watching);
// How many noted presses are still waiting for their event.
int pendingCount();
} // namespace SynthesisedKeys
