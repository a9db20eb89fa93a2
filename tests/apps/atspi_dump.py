#!/usr/bin/python3
"""Prints, as one JSON list, the showing objects of an application as its accessibility tree
exposes them: role, name, text and screen extents. Usage: atspi_dump.py PID"""
import json
import sys

import gi
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi


def walk(node, out, depth=0):
    if node is None or depth > 40:
        return
    try:
        states = node.get_state_set()
        showing = states.contains(Atspi.StateType.SHOWING)
    except Exception:
        return
    if showing:
        entry = {"role": node.get_role_name(), "name": node.get_name() or ""}
        try:
            text = node.get_text_iface()
            if text is not None:
                entry["text"] = text.get_text(0, text.get_character_count())
        except Exception:
            pass
        try:
            box = node.get_extents(Atspi.CoordType.SCREEN)
            entry["extents"] = [box.x, box.y, box.width, box.height]
        except Exception:
            pass
        out.append(entry)
    if not showing and depth > 0:
        return  # nothing inside a hidden object shows
    for i in range(node.get_child_count()):
        walk(node.get_child_at_index(i), out, depth + 1)


def main():
    pid = int(sys.argv[1])
    desktop = Atspi.get_desktop(0)
    out = []
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        try:
            if app is not None and app.get_process_id() == pid:
                walk(app, out)
        except Exception:
            continue
    print(json.dumps(out, ensure_ascii=False))


if __name__ == "__main__":
    main()
