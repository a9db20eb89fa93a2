#include "system/x11/X11Keymap.h"
#include "state/HotkeyConfig.h"

#include <QGuiApplication>
#include <QtGui/qguiapplication_platform.h>
#include <cstdlib>

namespace X11Keymap {

xcb_connection_t *qtConnection()
{
    auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance());
    if (!app)
        return nullptr;
    auto *x11 = app->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

xcb_window_t qtRootWindow()
{
    xcb_connection_t *connection = qtConnection();
    if (!connection)
        return 0;
    char *host = nullptr;
    int display = 0;
    int screenNumber = 0;
    if (!xcb_parse_display(nullptr, &host, &display, &screenNumber))
        screenNumber = 0;
    std::free(host);
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; it.rem && i < screenNumber; ++i)
        xcb_screen_next(&it);
    if (!it.rem)
        it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    return it.rem ? it.data->root : 0;
}

quint16 x11ModifiersFromCarbon(quint32 carbonModifiers)
{
    quint16 state = 0;
    if (carbonModifiers & Modifier::Command)
        state |= XCB_MOD_MASK_CONTROL;
    if (carbonModifiers & Modifier::Option)
        state |= XCB_MOD_MASK_1;
    if (carbonModifiers & Modifier::Control)
        state |= XCB_MOD_MASK_4;
    if (carbonModifiers & Modifier::Shift)
        state |= XCB_MOD_MASK_SHIFT;
    return state;
}

quint32 carbonModifiersFromX11(quint16 x11State)
{
    quint32 modifiers = 0;
    if (x11State & XCB_MOD_MASK_CONTROL)
        modifiers |= Modifier::Command;
    if (x11State & XCB_MOD_MASK_1)
        modifiers |= Modifier::Option;
    if (x11State & XCB_MOD_MASK_4)
        modifiers |= Modifier::Control;
    if (x11State & XCB_MOD_MASK_SHIFT)
        modifiers |= Modifier::Shift;
    return modifiers;
}

quint16 modifierMaskOfKeysym(xcb_connection_t *connection, xcb_keysym_t keysym)
{
    if (!connection)
        return 0;
    const xcb_setup_t *setup = xcb_get_setup(connection);
    const xcb_keycode_t first = setup->min_keycode;
    const int count = setup->max_keycode - setup->min_keycode + 1;
    auto mappingCookie = xcb_get_keyboard_mapping(connection, first, count);
    auto modifiersCookie = xcb_get_modifier_mapping(connection);
    xcb_get_keyboard_mapping_reply_t *mapping = xcb_get_keyboard_mapping_reply(connection, mappingCookie, nullptr);
    xcb_get_modifier_mapping_reply_t *modifiers = xcb_get_modifier_mapping_reply(connection, modifiersCookie, nullptr);
    quint16 mask = 0;
    if (mapping && modifiers) {
        const xcb_keysym_t *keysyms = xcb_get_keyboard_mapping_keysyms(mapping);
        const int perKeycode = mapping->keysyms_per_keycode;
        const xcb_keycode_t *keycodes = xcb_get_modifier_mapping_keycodes(modifiers);
        const int perModifier = modifiers->keycodes_per_modifier;
        // Eight modifiers (Shift, Lock, Control, Mod1-Mod5), each with up to perModifier keys.
        for (int modifier = 0; modifier < 8; ++modifier) {
            for (int k = 0; k < perModifier; ++k) {
                const xcb_keycode_t keycode = keycodes[modifier * perModifier + k];
                if (keycode < first || keycode - first >= count)
                    continue;
                for (int level = 0; level < perKeycode; ++level) {
                    if (keysyms[(keycode - first) * perKeycode + level] == keysym)
                        mask |= quint16(1u << modifier);
                }
            }
        }
    }
    std::free(mapping);
    std::free(modifiers);
    return mask;
}

} // namespace X11Keymap
