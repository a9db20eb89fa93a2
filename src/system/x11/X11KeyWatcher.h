#pragma once

#include "system/KeyWatcher.h"

#include <array>
#include <memory>
#include <vector>

#include <xcb/xcb.h>

class QSocketNotifier;
struct xkb_compose_state;
struct xkb_compose_table;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;

// Every key press of the desktop through XInput 2 raw key events on the root window, read on a
// private connection to the display (XI2 event masks are per client, and Qt selects its own on
// the root). Raw events carry only the key: what it types comes from an xkbcommon keymap and
// state kept in step with the server's (its keyboard description is reloaded when the layout
// changes, the modifier and group state follows the server's state notices), and from the
// locale's compose table for dead keys. Presses of XTest's keyboard that this process sent
// itself are left out (SynthesisedKeys); XTest presses of other clients are typing.
class X11KeyWatcher final : public KeyWatcher
{
public:
    X11KeyWatcher();
    ~X11KeyWatcher() override;

    bool start(Handler handler) override;
    void stop() override;
    bool isRunning() const override { return m_connection != nullptr; }

    // What one raw key press means, with the keyboard as it is now; updates the state as the
    // press does. For the benchmark and tests: start() feeds the server's events through this.
    KeyPress translatePress(xcb_keycode_t keycode);
    void translateRelease(xcb_keycode_t keycode);

    // The keyboard description of the display's core keyboard, without listening (benchmark).
    bool loadKeyboard(xcb_connection_t *connection);

private:
    bool reloadKeyboard();
    void readEvents();
    void handleEvent(xcb_generic_event_t *event);
    void findXTestDevices();
    void releaseKeyboard();

    xcb_connection_t *m_connection = nullptr;
    xcb_connection_t *m_keyboardConnection = nullptr; // m_connection, or the benchmark's
    std::unique_ptr<QSocketNotifier> m_notifier;
    Handler m_handler;
    uint8_t m_xinputOpcode = 0;
    uint8_t m_xkbEventBase = 0;
    int32_t m_coreKeyboard = -1;
    std::vector<uint16_t> m_xtestDevices;

    xkb_context *m_context = nullptr;
    xkb_keymap *m_keymap = nullptr;
    xkb_state *m_state = nullptr;
    xkb_compose_table *m_composeTable = nullptr;
    xkb_compose_state *m_compose = nullptr;
    uint32_t m_ctrlIndex = 0, m_altIndex = 0, m_superIndex = 0, m_shiftIndex = 0;
    std::array<quint32, 256> m_keyCodes{};   // X11 key code -> canonical key code
};
