#!/usr/bin/python3
"""A GTK 3 window with the fields the accessibility tests read: an entry, a read-only text
view and a password entry.

  --text TEXT          initial text of the entry and the text view
  --password TEXT      initial content of the password entry
  --focus NAME         field that has the focus: entry (default), readonly, password
  --select START END   select characters START..END of the focused field (code points)
  --title TITLE        window title (default "Parlanto GTK Fields")
  --second-entry TEXT  a second entry with this text, right after the first (Tab reaches it)
  --dump FILE          after every change, write the entries' texts to FILE as JSON:
                       {"entry": "...", "second_entry": "..."}

Prints "ready" once the window is shown and the field focused. On SIGUSR1 the main loop stops
answering for --hang seconds (default 20), like an application that hangs.
"""
import argparse
import json
import os
import signal
import sys
import time

import gi

gi.require_version("Gtk", "3.0")
from gi.repository import GLib, Gtk  # noqa: E402


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--text", default="")
    parser.add_argument("--password", default="")
    parser.add_argument("--focus", default="entry", choices=["entry", "readonly", "password"])
    parser.add_argument("--select", nargs=2, type=int, metavar=("START", "END"))
    parser.add_argument("--title", default="Parlanto GTK Fields")
    parser.add_argument("--hang", type=float, default=20.0)
    parser.add_argument("--second-entry")
    parser.add_argument("--dump")
    args = parser.parse_args()

    window = Gtk.Window(title=args.title)
    window.set_default_size(640, 400)
    window.connect("destroy", Gtk.main_quit)
    box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL, spacing=8)
    box.set_border_width(8)
    window.add(box)

    entry = Gtk.Entry()
    entry.set_text(args.text.replace("\n", " "))
    box.pack_start(entry, False, False, 0)

    second = None
    if args.second_entry is not None:
        second = Gtk.Entry()
        second.set_text(args.second_entry)
        box.pack_start(second, False, False, 0)

    readonly = Gtk.TextView()
    readonly.set_editable(False)
    readonly.set_cursor_visible(True)
    readonly.get_buffer().set_text(args.text)
    box.pack_start(readonly, True, True, 0)

    password = Gtk.Entry()
    password.set_visibility(False)
    password.set_text(args.password)
    box.pack_start(password, False, False, 0)

    fields = {"entry": entry, "readonly": readonly, "password": password}

    def dump(*_):
        texts = {"entry": entry.get_text()}
        if second is not None:
            texts["second_entry"] = second.get_text()
        with open(args.dump + ".tmp", "w", encoding="utf-8") as out:
            json.dump(texts, out, ensure_ascii=False)
        os.replace(args.dump + ".tmp", args.dump)

    if args.dump:
        for field in (entry, second):
            if field is not None:
                field.connect("changed", dump)
        dump()

    def focus_field():
        field = fields[args.focus]
        field.grab_focus()
        if isinstance(field, Gtk.Entry):
            if args.select:
                field.select_region(*args.select)
            else:
                field.set_position(-1)  # no selection, caret at the end
        elif args.select:
            buffer = field.get_buffer()
            buffer.select_range(buffer.get_iter_at_offset(args.select[0]),
                                buffer.get_iter_at_offset(args.select[1]))
        print("ready", flush=True)
        return False

    def hang():
        time.sleep(args.hang)
        return True

    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1, hang)
    GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGTERM, lambda: Gtk.main_quit() or False)
    window.connect("map-event", lambda *_: GLib.timeout_add(50, focus_field) and False)
    window.show_all()
    window.present()
    Gtk.main()
    return 0


if __name__ == "__main__":
    sys.exit(main())
