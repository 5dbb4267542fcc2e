"""Takes the pictures of a file manager for the documentation, as an ordinary user sees it: with a
window manager, an icon theme, and the menu open. Needs root, and "tools/setup pictures".
  private_session picture.py BUILD_FOLDER FILE_MANAGER FOLDER_OF_PICTURES"""
import os
import pathlib
import shutil
import subprocess
import sys
import time

from desktop import Desktop, click, wait_for
from file_managers import MANAGERS

FILES = ("Annual report.odt", "Harbour.jpg", "Meadow.jpg", "Notes.txt", "Shopping list.txt")
USER = 1000
BACKGROUND = "#6b8299"
# Around the window.
MARGIN = 20


class PictureDesktop(Desktop):
    """The desktop of an ordinary user, who has nothing but one folder."""
    home = pathlib.Path("/home/anna")

    def use_module(self, library, folder):
        """Root has done it."""


def prepare(build, manager):
    """What needs root."""
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/home"], check=True)
    PictureDesktop.home.mkdir()
    os.chown(PictureDesktop.home, USER, USER)
    if manager.module_folder:
        modules = pathlib.Path("/tmp/modules")
        modules.mkdir()
        name = f"libtervano-{manager.name}.so"
        (modules / name).symlink_to(pathlib.Path(build) / "lib" / manager.name / name)
        subprocess.run(["mount", "--bind", modules, manager.module_folder], check=True)
    # The display's socket.
    os.mkdir("/tmp/.X11-unix")
    os.chmod("/tmp/.X11-unix", 0o1777)


def become_user():
    os.setgroups([])
    os.setgid(USER)
    os.setuid(USER)


def add_files(folder):
    for name in FILES:
        (folder / name).write_text(name)
    for name, colours in (("Harbour.jpg", "gradient:orange-navy"),
                          ("Meadow.jpg", "gradient:skyblue-green")):
        subprocess.run(["convert", "-size", "640x480", colours, folder / name], check=True)
    # Of what has just changed, some make no small picture yet.
    for days, name in enumerate(FILES, 10):
        then = time.time() - days * 86000
        os.utime(folder / name, (then, then))


def add_actions(desktop):
    def add(kind, *options):
        return desktop.tervano("add", kind, *options)

    group = add("group-move", "--title", "Move to")
    for name in ("Documents", "Pictures", "Archive"):
        (desktop.home / name).mkdir(exist_ok=True)
        add("move", "--to", str(desktop.home / name), "--into", group)
    group = add("group-copy", "--title", "Copy to")
    add("copy", "--to", str(desktop.home / "Archive"), "--into", group)
    group = add("group-convert", "--title", "Convert pictures", "--types", "public.image")
    for name in ("jpeg", "png", "tiff", "pdf"):
        add("convert", "--format", name, "--title", name.upper(), "--into", group)
    add("compress")
    for script in ("Copy Path", "Duplicate", "Remove Metadata from Pictures"):
        add("bundled", script)
    add("mail")
    add("secure-delete")


def use_theme(desktop, name):
    """As the desktop of that file manager has it."""
    if name == "dolphin":
        desktop.write(".config/kdeglobals", "[KDE]\nSingleClick=false\n[Icons]\nTheme=breeze\n")
        os.environ.update(QT_STYLE_OVERRIDE="Breeze", XDG_CURRENT_DESKTOP="KDE")
    # Nobody would choose it for pictures.
    desktop.write(".local/share/applications/display-im6.q16.desktop",
                  "[Desktop Entry]\nType=Application\nName=Hidden\nHidden=true\n")
    subprocess.run(["hsetroot", "-solid", BACKGROUND], check=True)
    desktop.start(["xfwm4", "--compositor=on"])
    wait_for("the window manager", lambda: "window id" in subprocess.run(
        ["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], capture_output=True, text=True,
        check=True).stdout)


class ShownWindow:
    """The window of a file manager, which stands free on the screen."""

    def __init__(self, manager):
        self.manager = manager
        self.number = wait_for("the window", lambda: self.output_of(
            "xdotool", "search", "--onlyvisible", "--name",
            f"^{manager.folder_name}( [-—] .*)?$").split())[0]
        subprocess.run(["xdotool", "windowsize", self.number, str(manager.picture_width), "680"],
                       check=True)
        subprocess.run(["xdotool", "windowmove", self.number, str(MARGIN), str(MARGIN)], check=True)
        wait_for("the place of the window", lambda: min(self.place()) >= MARGIN)

    def output_of(self, *command):
        return subprocess.run(command, check=False, capture_output=True, text=True).stdout

    def place(self):
        """Its left upper corner on the screen."""
        words = self.output_of("xdotool", "getwindowgeometry", "--shell", self.number).split()
        values = dict(word.split("=") for word in words)
        return int(values["X"]), int(values["Y"])

    def right_click(self, name):
        """On the item of that name, which stands still."""
        wait_for("the item's place", lambda: self.point_on(name) == self.point_on(name))
        click(*self.point_on(name), button=3)
        self.manager.wait_for_menu()

    def point_on(self, name):
        x, y = self.manager.point_on(self.manager.wait_for_item(name))
        # A window of GTK 4 knows its place on the screen neither as a whole nor inside its shadow.
        shadow = self.output_of("xprop", "-id", self.number, "-notype", "_GTK_FRAME_EXTENTS")
        if "=" in shadow:
            left, _, top, _ = (int(word) for word in shadow.split("=")[1].split(","))
            x, y = x + self.place()[0] + left, y + self.place()[1] + top
        return x, y


def still_picture(path):
    """Takes the picture of the screen once it has stood still for a second."""
    before = None
    since = time.monotonic()

    def is_still():
        nonlocal before, since
        subprocess.run(["import", "-window", "root", "-strip", path], check=True)
        now = path.read_bytes()
        if now != before:
            before, since = now, time.monotonic()
        return time.monotonic() - since > 1
    wait_for("a still screen", is_still, 30)
    subprocess.run(["mogrify", "-trim", "+repage", "-bordercolor", BACKGROUND, "-border", "12",
                    "-strip", path], check=True)


def take_pictures(build, manager_name, pictures):
    desktop = PictureDesktop(build)
    shown = desktop.home / "Documents"
    shown.mkdir()
    add_files(shown)
    add_actions(desktop)
    manager = MANAGERS[manager_name](desktop)
    use_theme(desktop, manager_name)
    manager.open(shown)
    manager.wait_for_item("Harbour.jpg")
    window = ShownWindow(manager)
    window.right_click("Harbour.jpg")
    if manager_name == "nautilus":
        # Its submenus lie on the menu.
        still_picture(pictures / "nautilus.png")
        manager.choose("Tervano")
        still_picture(pictures / "nautilus-actions.png")
    else:
        manager.choose("Tervano", "Convert pictures")
        wait_for("the group", lambda: manager.seen_entry("Tervano", "Convert pictures", "JPEG"))
        still_picture(pictures / (manager_name + ".png"))


def main():
    build, manager_name, folder = sys.argv[1:]
    prepare(build, MANAGERS[manager_name])
    pictures = pathlib.Path("/tmp/pictures")
    child = os.fork()
    if child == 0:
        become_user()
        pictures.mkdir()
        take_pictures(build, manager_name, pictures)
        return
    if os.waitpid(child, 0)[1] != 0:
        sys.exit("the pictures were not taken")
    for picture in pictures.iterdir():
        shutil.copyfile(picture, pathlib.Path(folder) / picture.name)


main()
