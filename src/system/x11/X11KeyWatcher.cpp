#include "system/x11/X11KeyWatcher.h"

#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "state/Log.h"

#include <QSocketNotifier>
#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include <xcb/xinput.h>
#define explicit xkb_explicit
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace {

const char *const tag = "KeyWatcher";

// The three XKB notices, read as one.
union XkbEvent {
    struct {
        uint8_t response_type;
        uint8_t xkbType;
        uint16_t sequence;
        xcb_timestamp_t time;
        uint8_t deviceID;
    } any;
    xcb_xkb_new_keyboard_notify_event_t newKeyboard;
    xcb_xkb_map_notify_event_t map;
    xcb_xkb_state_notify_event_t state;
};

// The locale whose compose table (dead keys, Multi_key) applies, as Xlib would choose it.
const char *composeLocale()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = std::getenv(name);
        if (value && *value)
            return value;
    }
    return "C";
}

// Typing shows no control characters; a tab is typed like any character.
QString printable(const char *utf8, int size)
{
    QString text = QString::fromUtf8(utf8, size);
    text.removeIf([](QChar c) { return (c.unicode() < 0x20 && c != QLatin1Char('\t')) || c.unicode() == 0x7f; });
    return text;
}

} // namespace

X11KeyWatcher::X11KeyWatcher()
{
    for (size_t code = 0; code < m_keyCodes.size(); ++code)
        m_keyCodes[code] = KeyCodes::keyCodeFromX11Keycode(quint32(code)).value_or(KeyPress::noKeyCode);
}

X11KeyWatcher::~X11KeyWatcher()
{
    stop();
    releaseKeyboard();
}

std::unique_ptr<KeyWatcher> createSystemKeyWatcher()
{
    return std::make_unique<X11KeyWatcher>();
}

void X11KeyWatcher::releaseKeyboard()
{
    if (m_compose)
        xkb_compose_state_unref(m_compose);
    if (m_composeTable)
        xkb_compose_table_unref(m_composeTable);
    if (m_state)
        xkb_state_unref(m_state);
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    if (m_context)
        xkb_context_unref(m_context);
    m_compose = nullptr;
    m_composeTable = nullptr;
    m_state = nullptr;
    m_keymap = nullptr;
    m_context = nullptr;
    m_keyboardConnection = nullptr;
}

bool X11KeyWatcher::loadKeyboard(xcb_connection_t *connection)
{
    releaseKeyboard();
    uint8_t eventBase = 0;
    if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &eventBase, nullptr))
        return false;
    m_xkbEventBase = eventBase;
    m_coreKeyboard = xkb_x11_get_core_keyboard_device_id(connection);
    if (m_coreKeyboard < 0)
        return false;
    m_keyboardConnection = connection;
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!m_context)
        return false;
    m_composeTable = xkb_compose_table_new_from_locale(m_context, composeLocale(), XKB_COMPOSE_COMPILE_NO_FLAGS);
    if (!m_composeTable)
        m_composeTable = xkb_compose_table_new_from_locale(m_context, "en_US.UTF-8", XKB_COMPOSE_COMPILE_NO_FLAGS);
    if (m_composeTable)
        m_compose = xkb_compose_state_new(m_composeTable, XKB_COMPOSE_STATE_NO_FLAGS);
    return reloadKeyboard();
}

bool X11KeyWatcher::reloadKeyboard()
{
    xkb_keymap *keymap = xkb_x11_keymap_new_from_device(m_context, m_keyboardConnection, m_coreKeyboard,
                                                        XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap)
        return false;
    xkb_state *state = xkb_x11_state_new_from_device(keymap, m_keyboardConnection, m_coreKeyboard);
    if (!state) {
        xkb_keymap_unref(keymap);
        return false;
    }
    if (m_state)
        xkb_state_unref(m_state);
    if (m_keymap)
        xkb_keymap_unref(m_keymap);
    m_keymap = keymap;
    m_state = state;
    m_ctrlIndex = xkb_keymap_mod_get_index(m_keymap, XKB_MOD_NAME_CTRL);
    m_altIndex = xkb_keymap_mod_get_index(m_keymap, XKB_MOD_NAME_ALT);
    m_superIndex = xkb_keymap_mod_get_index(m_keymap, XKB_MOD_NAME_LOGO);
    m_shiftIndex = xkb_keymap_mod_get_index(m_keymap, XKB_MOD_NAME_SHIFT);
    if (m_compose)
        xkb_compose_state_reset(m_compose);
    return true;
}

bool X11KeyWatcher::start(Handler handler)
{
    if (m_connection)
        return true;
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        logLine(tag, QStringLiteral("cannot open the display"));
        return false;
    }
    auto fail = [&](const QString &why) {
        logLine(tag, why);
        releaseKeyboard();
        xcb_disconnect(connection);
        return false;
    };

    const xcb_query_extension_reply_t *xinput = xcb_get_extension_data(connection, &xcb_input_id);
    if (!xinput || !xinput->present)
        return fail(QStringLiteral("the X server lacks XInput"));
    m_xinputOpcode = xinput->major_opcode;
    xcb_input_xi_query_version_reply_t *version =
        xcb_input_xi_query_version_reply(connection, xcb_input_xi_query_version(connection, 2, 2), nullptr);
    const bool hasXi2 = version && version->major_version >= 2;
    free(version);
    if (!hasXi2)
        return fail(QStringLiteral("the X server lacks XInput 2"));
    if (!loadKeyboard(connection))
        return fail(QStringLiteral("the X server lacks XKB or its keyboard description cannot be read"));

    // Raw key events of the master keyboards (every slave's would come twice), and XKB's notices
    // of keyboard, mapping and state changes.
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    struct {
        xcb_input_event_mask_t head;
        uint32_t mask;
    } rawMask{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
              XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE};
    xcb_generic_error_t *error =
        xcb_request_check(connection, xcb_input_xi_select_events_checked(connection, screen->root, 1, &rawMask.head));
    if (error) {
        free(error);
        return fail(QStringLiteral("raw key events cannot be selected"));
    }
    const uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY
        | XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    const uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP
        | XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS | XCB_XKB_MAP_PART_KEY_ACTIONS | XCB_XKB_MAP_PART_VIRTUAL_MODS
        | XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = XCB_XKB_STATE_PART_MODIFIER_BASE | XCB_XKB_STATE_PART_MODIFIER_LATCH
        | XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_BASE | XCB_XKB_STATE_PART_GROUP_LATCH
        | XCB_XKB_STATE_PART_GROUP_LOCK;
    details.stateDetails = details.affectState;
    error = xcb_request_check(connection, xcb_xkb_select_events_aux_checked(connection, uint16_t(m_coreKeyboard), events,
                                                                            0, 0, mapParts, mapParts, &details));
    if (error) {
        free(error);
        return fail(QStringLiteral("keyboard notices cannot be selected"));
    }

    m_connection = connection;
    m_handler = std::move(handler);
    findXTestDevices();
    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection), QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { readEvents(); });
    SynthesisedKeys::setWatching(true);
    readEvents();
    return true;
}

void X11KeyWatcher::stop()
{
    if (!m_connection)
        return;
    SynthesisedKeys::setWatching(false);
    m_notifier.reset();
    m_handler = {};
    releaseKeyboard();
    xcb_disconnect(m_connection);
    m_connection = nullptr;
}

void X11KeyWatcher::findXTestDevices()
{
    m_xtestDevices.clear();
    xcb_input_xi_query_device_reply_t *reply = xcb_input_xi_query_device_reply(
        m_connection, xcb_input_xi_query_device(m_connection, XCB_INPUT_DEVICE_ALL), nullptr);
    if (!reply)
        return;
    for (auto it = xcb_input_xi_query_device_infos_iterator(reply); it.rem; xcb_input_xi_device_info_next(&it)) {
        const QByteArray name(xcb_input_xi_device_info_name(it.data), xcb_input_xi_device_info_name_length(it.data));
        if (name.contains("XTEST"))
            m_xtestDevices.push_back(it.data->deviceid);
    }
    free(reply);
}

void X11KeyWatcher::readEvents()
{
    // Replies waited for while handling one event may bring others into xcb's queue: read until
    // nothing is left, then the notifier fires again for new data only.
    while (m_connection) {
        xcb_generic_event_t *event = xcb_poll_for_event(m_connection);
        if (!event)
            break;
        handleEvent(event);
        free(event);
    }
    if (m_connection && xcb_connection_has_error(m_connection)) {
        logLine(tag, QStringLiteral("the connection to the display broke: no more keys are seen"));
        m_notifier->setEnabled(false);
    }
}

void X11KeyWatcher::handleEvent(xcb_generic_event_t *event)
{
    const uint8_t type = event->response_type & 0x7f;
    if (type == XCB_GE_GENERIC) {
        auto *generic = reinterpret_cast<xcb_ge_generic_event_t *>(event);
        if (generic->extension != m_xinputOpcode)
            return;
        auto *raw = reinterpret_cast<xcb_input_raw_key_press_event_t *>(event);
        const auto keycode = static_cast<xcb_keycode_t>(raw->detail);
        if (generic->event_type == XCB_INPUT_RAW_KEY_RELEASE) {
            translateRelease(keycode);
            return;
        }
        if (generic->event_type != XCB_INPUT_RAW_KEY_PRESS)
            return;
        const bool fromXTest = std::find(m_xtestDevices.begin(), m_xtestDevices.end(), raw->sourceid) != m_xtestDevices.end();
        if (fromXTest && SynthesisedKeys::takePress(keycode)) {
            // Ours: it changes the keyboard's state all the same, but it is not typing.
            if (m_state)
                xkb_state_update_key(m_state, keycode, XKB_KEY_DOWN);
            return;
        }
        const KeyPress press = translatePress(keycode);
        if (m_handler)
            m_handler(press);
        return;
    }
    if (type != m_xkbEventBase || !m_state)
        return;
    const auto *xkb = reinterpret_cast<const XkbEvent *>(event);
    if (xkb->any.deviceID != m_coreKeyboard)
        return;
    switch (xkb->any.xkbType) {
    case XCB_XKB_NEW_KEYBOARD_NOTIFY:
        if (xkb->newKeyboard.changed & XCB_XKB_NKN_DETAIL_KEYCODES)
            reloadKeyboard();
        break;
    case XCB_XKB_MAP_NOTIFY:
        reloadKeyboard();
        break;
    case XCB_XKB_STATE_NOTIFY:
        xkb_state_update_mask(m_state, xkb->state.baseMods, xkb->state.latchedMods, xkb->state.lockedMods,
                              xkb_layout_index_t(xkb->state.baseGroup), xkb_layout_index_t(xkb->state.latchedGroup),
                              xkb_layout_index_t(xkb->state.lockedGroup));
        break;
    default:
        break;
    }
}

KeyPress X11KeyWatcher::translatePress(xcb_keycode_t keycode)
{
    KeyPress press;
    press.keyCode = m_keyCodes[keycode];
    if (!m_state)
        return press;
    if (xkb_state_mod_index_is_active(m_state, m_ctrlIndex, XKB_STATE_MODS_EFFECTIVE) > 0)
        press.modifiers |= Modifier::Command;
    if (xkb_state_mod_index_is_active(m_state, m_altIndex, XKB_STATE_MODS_EFFECTIVE) > 0)
        press.modifiers |= Modifier::Option;
    if (xkb_state_mod_index_is_active(m_state, m_superIndex, XKB_STATE_MODS_EFFECTIVE) > 0)
        press.modifiers |= Modifier::Control;
    if (xkb_state_mod_index_is_active(m_state, m_shiftIndex, XKB_STATE_MODS_EFFECTIVE) > 0)
        press.modifiers |= Modifier::Shift;

    char utf8[64];
    bool composed = false;
    if (m_compose) {
        const xkb_keysym_t keysym = xkb_state_key_get_one_sym(m_state, keycode);
        if (xkb_compose_state_feed(m_compose, keysym) == XKB_COMPOSE_FEED_ACCEPTED) {
            switch (xkb_compose_state_get_status(m_compose)) {
            case XKB_COMPOSE_COMPOSING:
                composed = true;   // a dead key: it types nothing yet
                break;
            case XKB_COMPOSE_COMPOSED: {
                const int size = xkb_compose_state_get_utf8(m_compose, utf8, sizeof utf8);
                press.text = printable(utf8, std::min<int>(size, int(sizeof utf8) - 1));
                xkb_compose_state_reset(m_compose);
                composed = true;
                break;
            }
            case XKB_COMPOSE_CANCELLED:
                xkb_compose_state_reset(m_compose);
                composed = true;
                break;
            case XKB_COMPOSE_NOTHING:
                break;
            }
        }
    }
    if (!composed) {
        const int size = xkb_state_key_get_utf8(m_state, keycode, utf8, sizeof utf8);
        if (size > 0)
            press.text = printable(utf8, std::min<int>(size, int(sizeof utf8) - 1));
    }
    xkb_state_update_key(m_state, keycode, XKB_KEY_DOWN);
    return press;
}

void X11KeyWatcher::translateRelease(xcb_keycode_t keycode)
{
    if (m_state)
        xkb_state_update_key(m_state, keycode, XKB_KEY_UP);
}
