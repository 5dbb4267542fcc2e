"""Owns a selection of the X server: clipboard_owner.py SELECTION ANSWER TYPE=CONTENT...

SELECTION is CLIPBOARD or PRIMARY, a content is hexadecimal. ANSWER is "answer", or "silent" for an
owner that tells the kinds and then stands still. Says "ready" once it owns the selection.
"""

import sys
import time

import gi

gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, Gtk  # noqa: E402


def main():
    selection, answer = sys.argv[1:3]
    contents = [word.split("=", 1) for word in sys.argv[3:]]
    window = Gtk.Invisible()
    atom = Gdk.Atom.intern(selection, False)
    for number, (kind, _) in enumerate(contents):
        Gtk.selection_add_target(window, atom, Gdk.Atom.intern(kind, False), number)

    def give(_widget, data, number, _time):
        while answer == "silent":
            time.sleep(60)
        kind, content = contents[number]
        data.set(Gdk.Atom.intern(kind, False), 8, bytes.fromhex(content))

    window.connect("selection-get", give)
    if not Gtk.selection_owner_set(window, atom, Gdk.CURRENT_TIME):
        sys.exit(1)
    Gdk.Display.get_default().sync()
    print("ready", flush=True)
    Gtk.main()


main()
