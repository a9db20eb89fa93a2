#!/usr/bin/python3
# Another X client that holds a global key grab, the way a desktop's shortcut daemon or another
# tray tool does. Usage: key_grabber.py KEYSYM MODIFIER...  (ctrl, shift, alt, super, numlock)
# Prints "ready" once the grab is in place (or "refused" when someone else holds it), then keeps
# it until killed or until standard input closes.
import ctypes
import ctypes.util
import sys

MASKS = {"shift": 1 << 0, "lock": 1 << 1, "ctrl": 1 << 2, "alt": 1 << 3, "numlock": 1 << 4, "super": 1 << 6}
GRAB_MODE_ASYNC = 1
BAD_ACCESS = 10


class XErrorEvent(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("display", ctypes.c_void_p), ("resourceid", ctypes.c_ulong),
                ("serial", ctypes.c_ulong), ("error_code", ctypes.c_ubyte), ("request_code", ctypes.c_ubyte),
                ("minor_code", ctypes.c_ubyte)]


def main():
    if len(sys.argv) < 2:
        print("usage: key_grabber.py KEYSYM MODIFIER...", file=sys.stderr)
        return 2
    xlib = ctypes.CDLL(ctypes.util.find_library("X11") or "libX11.so.6")
    xlib.XOpenDisplay.restype = ctypes.c_void_p
    xlib.XOpenDisplay.argtypes = [ctypes.c_char_p]
    xlib.XDefaultRootWindow.restype = ctypes.c_ulong
    xlib.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
    xlib.XStringToKeysym.restype = ctypes.c_ulong
    xlib.XStringToKeysym.argtypes = [ctypes.c_char_p]
    xlib.XKeysymToKeycode.restype = ctypes.c_ubyte
    xlib.XKeysymToKeycode.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
    xlib.XGrabKey.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint, ctypes.c_ulong, ctypes.c_int,
                              ctypes.c_int, ctypes.c_int]
    xlib.XSync.argtypes = [ctypes.c_void_p, ctypes.c_int]

    display = xlib.XOpenDisplay(None)
    if not display:
        print("no display", file=sys.stderr)
        return 1
    keycode = xlib.XKeysymToKeycode(display, xlib.XStringToKeysym(sys.argv[1].encode()))
    modifiers = 0
    for name in sys.argv[2:]:
        modifiers |= MASKS[name]

    errors = []
    handler_type = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.POINTER(XErrorEvent))

    def on_error(_display, event):
        errors.append(event.contents.error_code)
        return 0

    handler = handler_type(on_error)
    xlib.XSetErrorHandler(handler)
    xlib.XGrabKey(display, keycode, modifiers, xlib.XDefaultRootWindow(display), 1, GRAB_MODE_ASYNC,
                  GRAB_MODE_ASYNC)
    xlib.XSync(display, 0)
    print("refused" if BAD_ACCESS in errors else "ready", flush=True)
    sys.stdin.read()
    return 0


if __name__ == "__main__":
    sys.exit(main())
