#pragma once

#include <QtGlobal>
#include <xcb/xcb.h>

// Small X11 helpers shared by the X11 backends: Qt's own connection and root window, the
// modifier convention, and modifier bits of keysyms in the live keyboard mapping.
namespace X11Keymap {

// Qt's xcb connection (nullptr when the application does not run on X11).
xcb_connection_t *qtConnection();
// The root window of the default screen on that connection (0 without one).
xcb_window_t qtRootWindow();

// Carbon modifier mask <-> X11 modifier state: Command = Control, Option = Mod1 (Alt),
// Control = Mod4 (Super), Shift = Shift. Other X11 bits (Lock, NumLock, AltGr's Mod5) drop out.
quint16 x11ModifiersFromCarbon(quint32 carbonModifiers);
quint32 carbonModifiersFromX11(quint16 x11State);
// The X11 state bits that the Carbon convention gives a meaning to.
inline constexpr quint16 relevantModifierMask =
    XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;

// The modifier bit(s) set by the keys producing this keysym in the current modifier mapping
// (e.g. NumLock's, usually Mod2); 0 when no modifier key produces it.
quint16 modifierMaskOfKeysym(xcb_connection_t *connection, xcb_keysym_t keysym);

inline constexpr xcb_keysym_t numLockKeysym = 0xff7f;

} // namespace X11Keymap
