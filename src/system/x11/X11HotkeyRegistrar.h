#pragma once

#include "system/HotkeyRegistrar.h"

#include <QAbstractNativeEventFilter>
#include <QList>
#include <xcb/xcb.h>

// Global hot keys as passive key grabs on the root window, made on Qt's own xcb connection so
// that the presses arrive through Qt's event loop (seen by a native event filter).
//
// Each shortcut is grabbed four times, with and without Caps Lock and Num Lock, so it fires
// whatever lock is on. A grab another client holds (BadAccess) refuses the registration at once,
// as does a second registration of the same shortcut in this process; partial grabs are undone.
// The key is grabbed by its physical position (evdev), so a binding means the same key on every
// layout.
class X11HotkeyRegistrar : public HotkeyRegistrar, private QAbstractNativeEventFilter
{
    Q_OBJECT
public:
    // Status codes beside the X11 error codes (BadAccess = 10, BadValue = 2).
    static constexpr int badAccess = 10;
    static constexpr int badValue = 2;
    static constexpr int noDisplay = -1;

    explicit X11HotkeyRegistrar(QObject *parent = nullptr);
    ~X11HotkeyRegistrar() override;

    int installHandler(PressHandler handler) override;
    void removeHandler() override;
    Result registerHotkey(quint32 id, quint32 keyCode, quint32 modifiers) override;
    void unregisterHotkey(quint32 id) override;
    bool isHotkeyHeld() const override;

private:
    struct Grab {
        quint32 id;
        xcb_keycode_t keycode;
        quint16 modifiers;          // X11 state bits that must be down
        QList<quint16> lockVariants;  // the extra lock bits of each grab made
    };

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;
    void ungrab(const Grab &grab);

    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = 0;
    QList<Grab> m_grabs;
    PressHandler m_handler;
    bool m_filterInstalled = false;
    // The grabbed key that fired and is still down (0: none), and its registration.
    xcb_keycode_t m_heldKeycode = 0;
    quint32 m_heldId = 0;
};
