"""Takes the picture of a file manager with the menu and a group open:
private_session picture.py BUILD_FOLDER FILE_MANAGER PICTURE.png"""
import subprocess
import sys

from desktop import Desktop, wait_for
from file_managers import MANAGERS

FILES = ("Annual report.odt", "Holiday.jpg", "Notes.txt")


def add_actions(desktop):
    def add(kind, *options):
        return desktop.tervano("add", kind, *options)

    group = add("group-move", "--title", "Move to")
    for name in ("Documents", "Pictures", "Archive"):
        (desktop.home / name).mkdir()
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


def main():
    build, manager_name, picture = sys.argv[1:]
    desktop = Desktop(build)
    for name in FILES:
        (desktop.files / name).write_text(name)
    subprocess.run(["convert", "-size", "640x480", "gradient:orange-navy",
                    desktop.files / "Holiday.jpg"], check=True)
    add_actions(desktop)
    manager = MANAGERS[manager_name](desktop)
    manager.open()
    manager.wait_for_item("Holiday.jpg")
    subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^files", "windowsize",
                    "--sync", str(manager.picture_width), "680"], check=True)
    manager.select("Holiday.jpg")
    below = desktop.work / "below.png"
    take(below)
    manager.open_menu()
    manager.choose("Tervano", "Convert pictures")
    wait_for("the group", lambda: manager.seen_entry("Tervano", "Convert pictures", "JPEG"))
    take(picture)
    if manager_name == "nautilus":
        # Without a compositor the transparent shadow of a menu is black.
        subprocess.run(["convert", "(", below, "-fill", "black", "-colorize", "12%", ")",
                        "(", picture, "-transparent", "black", ")", "-composite", picture],
                       check=True)
    subprocess.run(["mogrify", "-trim", "+repage", "-strip", picture], check=True)


def take(picture):
    subprocess.run(["import", "-window", "root", picture], check=True)


main()
