#include "system/x11/X11HotkeyRegistrar.h"
#include "state/KeyCodes.h"
#include "system/x11/X11Keymap.h"

#include <QCoreApplication>
#include <cstdlib>

X11HotkeyRegistrar::X11HotkeyRegistrar(QObject *parent)
    : HotkeyRegistrar(parent)
    , m_connection(X11Keymap::qtConnection())
    , m_root(X11Keymap::qtRootWindow())
{
}

X11HotkeyRegistrar::~X11HotkeyRegistrar()
{
    removeHandler();
    for (const Grab &grab : std::as_const(m_grabs))
        ungrab(grab);
    if (m_connection)
        xcb_flush(m_connection);
}

int X11HotkeyRegistrar::installHandler(PressHandler handler)
{
    if (!m_connection || !m_root)
        return noDisplay;
    m_handler = std::move(handler);
    if (!m_filterInstalled) {
        QCoreApplication::instance()->installNativeEventFilter(this);
        m_filterInstalled = true;
    }
    return 0;
}

void X11HotkeyRegistrar::removeHandler()
{
    if (m_filterInstalled && QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    m_filterInstalled = false;
    m_handler = nullptr;
}

HotkeyRegistrar::Result X11HotkeyRegistrar::registerHotkey(quint32 id, quint32 keyCode, quint32 modifiers)
{
    if (!m_connection || !m_root)
        return {Outcome::Failed, noDisplay};
    const auto keycode = KeyCodes::x11KeycodeFromKeyCode(keyCode);
    if (!keycode)
        return {Outcome::Failed, badValue};
    const quint16 state = X11Keymap::x11ModifiersFromCarbon(modifiers);

    // The server lets a client grab the same combination twice; a shortcut is ours only once.
    for (const Grab &grab : std::as_const(m_grabs)) {
        if (grab.keycode == *keycode && grab.modifiers == state)
            return {Outcome::Failed, badAccess};
    }

    QList<quint16> variants{0, XCB_MOD_MASK_LOCK};
    if (const quint16 numLock = X11Keymap::modifierMaskOfKeysym(m_connection, X11Keymap::numLockKeysym);
        numLock && !(numLock & (state | XCB_MOD_MASK_LOCK))) {
        variants << numLock << quint16(numLock | XCB_MOD_MASK_LOCK);
    }

    // Send all grabs, then collect the answers: one round trip in all.
    QList<xcb_void_cookie_t> cookies;
    for (quint16 lock : std::as_const(variants)) {
        cookies << xcb_grab_key_checked(m_connection, /*owner_events*/ 0, m_root, state | lock, *keycode,
                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    }
    Grab made{id, xcb_keycode_t(*keycode), state, {}};
    int status = 0;
    for (qsizetype i = 0; i < cookies.size(); ++i) {
        if (xcb_generic_error_t *error = xcb_request_check(m_connection, cookies.at(i))) {
            if (status == 0)
                status = error->error_code;
            std::free(error);
        } else {
            made.lockVariants << variants.at(i);
        }
    }
    if (status != 0) {
        ungrab(made);  // only the variants that were granted to us
        xcb_flush(m_connection);
        return {Outcome::Failed, status};
    }
    m_grabs << made;
    return {Outcome::Registered, 0};
}

void X11HotkeyRegistrar::unregisterHotkey(quint32 id)
{
    for (qsizetype i = 0; i < m_grabs.size(); ++i) {
        if (m_grabs.at(i).id != id)
            continue;
        ungrab(m_grabs.at(i));
        xcb_flush(m_connection);
        if (m_heldId == id)
            m_heldKeycode = 0;
        m_grabs.removeAt(i);
        return;
    }
}

void X11HotkeyRegistrar::ungrab(const Grab &grab)
{
    for (quint16 lock : grab.lockVariants)
        xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers | lock);
}

bool X11HotkeyRegistrar::isHotkeyHeld() const
{
    if (!m_heldKeycode)
        return false;
    // Ask the server rather than trust the event stream alone: the release may still be queued.
    xcb_query_keymap_reply_t *keymap = xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr);
    if (!keymap)
        return false;
    const bool down = keymap->keys[m_heldKeycode / 8] & (1 << (m_heldKeycode % 8));
    std::free(keymap);
    return down;
}

bool X11HotkeyRegistrar::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    auto *event = static_cast<xcb_generic_event_t *>(message);
    const uint8_t type = event->response_type & 0x7f;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
        return false;
    auto *key = reinterpret_cast<xcb_key_press_event_t *>(event);
    if (key->event != m_root)
        return false;

    if (type == XCB_KEY_RELEASE) {
        if (key->detail != m_heldKeycode)
            return false;
        const quint32 id = m_heldId;
        m_heldKeycode = 0;
        Q_EMIT hotkeyReleased(id);
        return true;
    }

    const quint16 state = key->state & X11Keymap::relevantModifierMask;
    for (const Grab &grab : std::as_const(m_grabs)) {
        if (grab.keycode != key->detail || grab.modifiers != state)
            continue;
        // Auto-repeat of a held hot key (Qt asks the server for presses without releases in
        // between): one press per stroke.
        if (m_heldKeycode == key->detail)
            return true;
        m_heldKeycode = key->detail;
        m_heldId = grab.id;
        return m_handler ? m_handler(grab.id) : false;
    }
    return false;
}

std::unique_ptr<HotkeyRegistrar> createSystemHotkeyRegistrar()
{
    return std::make_unique<X11HotkeyRegistrar>();
}
