"""What an ordinary user does with an installed integration, by mouse and on the session's own bus.
Run inside a fresh system by `check`: right_click_test.py FILE_MANAGER [Class.test]"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "desktop"))

# pylint: disable=wrong-import-position
from desktop import Desktop, click, wait_for
from desktop_test import DesktopTest
from file_managers import MANAGERS

AUTOSTART = "/etc/xdg/autostart/com.vessok.tervano.setup.desktop"
TITLES = {"nautilus": "GNOME Files", "caja": "Caja", "nemo": "Nemo", "thunar": "Thunar",
          "dolphin": "Dolphin"}


class InstalledDesktop(Desktop):
    """A session of the installed system: its own bus with all its services, and every module and
    extension that its file manager finds."""
    work = pathlib.Path.home() / "session"
    home = work / "home"

    def _bus_configuration(self):
        return "/usr/share/dbus-1/session.conf"

    def use_module(self, library, folder):
        if not (pathlib.Path(folder) / library.name).is_file():
            raise AssertionError(f"{folder} lacks {library.name}")

    def screenshot(self, name):
        subprocess.run(["import", "-window", "root", pathlib.Path.home() / (name + ".png")],
                       check=True)


class RightClickTest(DesktopTest):
    desktop_class = InstalledDesktop

    @classmethod
    def setUpClass(cls):
        # The list of the test before.
        shutil.rmtree(InstalledDesktop.work, ignore_errors=True)

    def setUp(self):
        super().setUp()
        # Of the tests nothing but the observer; our plugin is where Qt looks anyway.
        os.environ.pop("QT_PLUGIN_PATH", None)
        if self.manager.name == "dolphin":
            os.environ["QT_PLUGIN_PATH"] = "/run/plugins"
        # As the session does it.
        subprocess.run(["gio", "launch", AUTOSTART], check=True)
        wait_for("the first actions", lambda: "Copy Path" in self.desktop.tervano("list"))

    def right_click(self, name):
        """Opens the menu of an item by the mouse alone."""
        item = self.manager.wait_for_item(name)
        self.manager.focus()
        click(*self.manager.point_on(item), button=3)
        return self.manager.wait_for_menu()

    def click_through(self, *titles):
        """Clicks on the entries with these titles, one after the other."""
        for depth in range(1, len(titles) + 1):
            click(*wait_for(f"the menu entry {titles[:depth]}",
                            lambda: self.still_place_of(*titles[:depth])))

    def still_place_of(self, *titles):
        """The middle of an enabled entry on the screen; None while it is hidden or moves."""
        place = self.place_of(*titles)
        time.sleep(0.1)
        return place if place == self.place_of(*titles) else None

    def place_of(self, *titles):
        entry = self.manager.seen_entry(*titles)
        if entry is None or not entry.is_enabled:
            return None
        if self.manager.name == "dolphin":
            return entry.node.place
        x, y, width, height = entry.node.extents()
        if self.manager.name == "nautilus":
            # They know their places in the window, but not where the menu's own window is.
            menu_x, menu_y, *_ = self.manager.menu().node.extents()
            window_x, window_y = self.menu_window_place()
            x, y = window_x + x - menu_x, window_y + y - menu_y
        return (x + width // 2, y + height // 2) if width > 0 and height > 0 else None

    def menu_window_place(self):
        window = subprocess.run(["xdotool", "search", "--onlyvisible", "--name",
                                 "^org.gnome.Nautilus$", "getwindowgeometry", "--shell"],
                                check=True, capture_output=True, text=True).stdout
        values = dict(line.split("=") for line in window.split())
        return int(values["X"]), int(values["Y"])

    def findings(self):
        done = subprocess.run(["tervano", "doctor", "--json"], check=False, capture_output=True,
                              text=True)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return {one["what"]: one for one in json.loads(done.stdout)}

    def test_a_user_logs_in_and_right_clicks(self):
        self.assertNotEqual(os.getuid(), 0)
        self.add_move("Move away")
        self.manager.open()
        self.right_click("alpha.txt")
        self.click_through("Tervano", "Move away")
        self.wait_for_move("alpha.txt")
        self.desktop.wait_for_notification("Finished moving 'alpha.txt'")
        self.assertEqual(sorted(os.listdir(self.desktop.files)), ["beta.png", "gamma.txt"])
        findings = self.findings()
        own = TITLES[self.manager.name]
        for title in TITLES.values():
            self.assertEqual(findings[title]["state"], "OK" if title == own else "missing", title)
        self.assertEqual(findings["menu"]["detail"], f"It is shown by {own}.")
        self.assertIn("/usr/bin/tervano", findings["scheme handler"]["detail"])
        for what in ("session bus", "D-Bus service", "notification daemon", "action list"):
            self.assertEqual(findings[what]["state"], "OK", findings[what])
        running = findings.get("running " + own)
        if running:
            self.assertEqual(running["state"], "OK", running)

    def test_caja_names_it_in_its_preferences(self):
        # Nothing else opens them, and nothing else looks into the bar of menus.
        self.manager.closed_roles = lambda _: set()
        self.manager.open()
        wait_for("the preferences", lambda: self.manager.frame().find("Preferences", {"menu item"})
                 ).do_action()
        wait_for("the name", lambda: next(
            (node for node in self.manager.find_all(roles={"table cell"})
             if node.name.split("\n") == ["Tervano", "Your own actions in the context menu"]), None))

    def test_the_first_actions_work(self):
        self.manager.open()
        self.right_click("alpha.txt")
        self.click_through("Tervano", "Duplicate")
        wait_for("the duplicate", lambda: len(os.listdir(self.desktop.files)) == 4)
        self.assertEqual(len([path for path in self.desktop.files.iterdir()
                              if path.read_text() == "alpha.txt"]), 2)
        self.manager.close_menu()
        subprocess.run(["convert", "-size", "20x10", "xc:red", self.desktop.files / "beta.png"],
                       check=True)
        self.right_click("beta.png")
        self.click_through("Tervano", "Convert Image", "JPEG")
        picture = self.desktop.files / "beta.jpg"
        wait_for("the picture", picture.exists)
        self.assertEqual(subprocess.run(["identify", "-format", "%m %wx%h", picture], check=True,
                                        capture_output=True, text=True).stdout, "JPEG 20x10")


if __name__ == "__main__":
    DesktopTest.build = "/usr"
    DesktopTest.manager_class = MANAGERS[sys.argv.pop(1)]
    unittest.main()
