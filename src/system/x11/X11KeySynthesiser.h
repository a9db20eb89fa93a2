#pragma once

#include "system/KeySynthesiser.h"

#include <chrono>
#include <map>
#include <memory>
#include <vector>

#include <xcb/xcb.h>

class QTimer;
struct xkb_context;

// Synthesised keys through XTest, on a private connection to the display. Keys are chosen by
// keysym in the keyboard layout active at the moment of sending (so Ctrl+C is the key that types
// "c" on a German, French or Dvorak layout too), and nothing goes out while the user still holds
// a key: the modifiers of a hotkey would mix into the chord, and while a grabbed hotkey is held
// the server sends every key to its grabber. The wait is bounded; keys still held then are
// released through XTest (never pressed again, so nothing is left stuck).
class X11KeySynthesiser : public KeySynthesiser
{
public:
    static constexpr std::chrono::milliseconds releaseWaitBound{1000};
    static constexpr std::chrono::milliseconds releasePollInterval{10};

    X11KeySynthesiser();
    ~X11KeySynthesiser() override;

    // False when no display (or no XTest, or no XKB) is available: nothing is sent then.
    bool isConnected() const { return m_connection != nullptr; }

    QCoro::Task<> pressChord(KeyChord chord) override;
    QCoro::Task<> pressKey(quint32 keyCode, int count) override;
    bool typesFromClipboard() const override { return false; }
    // Types the text key by key: characters of the active layout with the modifiers of their
    // level, any other character through a spare key code mapped to it for the moment.
    QCoro::Task<bool> typeText(QString text) override;
    QCoro::Task<> waitForKeysUp() override;

    // How many key events this synthesiser has sent (a key watcher can leave its own out).
    quint64 sentEvents() const { return m_sentEvents; }

private:
    struct Layout;
    struct CoreMapping;

    QCoro::Task<> waitForReleasedKeys();
    std::unique_ptr<Layout> loadLayout();
    CoreMapping coreMapping();
    void giveBackSpareKeys();
    void send(bool press, xcb_keycode_t keycode);
    void tap(const std::vector<xcb_keycode_t> &modifiers, xcb_keycode_t keycode);
    void sync();

    xcb_connection_t *m_connection = nullptr;
    xkb_context *m_context = nullptr;
    int32_t m_deviceId = -1;
    quint64 m_sentEvents = 0;
    std::map<quint32, xcb_keycode_t> m_lent;   // spare key codes lent to keysyms for typing
    std::unique_ptr<QTimer> m_giveBackTimer;
};
