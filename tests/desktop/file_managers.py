"""The file managers, each driven as a person would: select, open the menu, choose."""
import json
import os
import subprocess

import accessible
from accessible import MENU_ROLES
from desktop import click, end, keys, wait_for

INVISIBLE = "\u200b\u200c\u2060"
LIBRARIES = "/usr/lib/x86_64-linux-gnu"


class Entry:
    """An entry of the open menu as it was at the look."""
    # Whether a picture stands beside it; None where that is not told.
    has_icon = None

    def __init__(self, node, entries):
        self.node = node
        # GNOME Files is given labels with an invisible end.
        self.title = node.name.rstrip(INVISIBLE)
        self.is_enabled = node.has(accessible.SENSITIVE)
        # Of its submenu; None without one.
        self.entries = entries

    def member(self, title):
        """The first entry of that title below it; None without one."""
        return next((entry for entry in self.entries or () if entry.title == title), None)

    def titles(self):
        return [entry.title for entry in self.entries or ()]


class FileManager:
    """One running file manager. `name` is the folder of its module below the build's lib."""
    name = ""
    module_folder = ""
    # Of the items of a folder, and of what holds them.
    item_roles = {"table cell"}
    view_roles = {"tree table", "table"}
    # What is named as an open folder's window.
    frame_role = "frame"
    trash_window = "Trash"
    # Of the window in the documentation's picture, so that no menu leaves it.
    picture_width = 1100

    def __init__(self, desktop):
        self.desktop = desktop
        self.process = None
        # Of the window that is being used.
        self.folder_name = ""
        self.install_module()

    def install_module(self):
        """Lets it find the build's module and no other extension."""
        self.desktop.use_module(
            self.desktop.build / "lib" / self.name / f"libtervano-{self.name}.so",
            self.module_folder)

    def command(self, folder):
        raise NotImplementedError

    def open(self, folder=None):
        """Starts it with a window of that folder, or of the folder of the files."""
        folder = str(folder or self.desktop.files)
        self.process = self.desktop.start(self.command(folder))
        self.use_window(os.path.basename(folder) or self.trash_window)

    def open_window(self, folder):
        """Another window, which is used from now on."""
        self.desktop.start(self.command(str(folder)))
        self.use_window(os.path.basename(folder) or self.trash_window)

    def use_window(self, folder_name):
        """Uses the window of that folder from now on, once it is there."""
        self.folder_name = folder_name
        wait_for(f"the window {folder_name} of {self.name}", self.frame, 30)

    def close(self):
        end(self.process)

    def look(self, with_items=False):
        """Everything that it shows now, the items of folders only if wanted; None while it is not
        on the accessibility bus."""
        self.expect_running()
        return accessible.application(self.process.pid, self.closed_roles(with_items))

    def expect_running(self):
        if self.process.poll() is not None:
            raise AssertionError(f"{self.name} has ended: {self.desktop.log_of(self.name)[-3000:]}")

    def closed_roles(self, with_items):
        """Widgets of these roles are not looked into."""
        return {"menu bar"} if with_items else {"menu bar"} | self.view_roles

    def find_all(self, name=None, roles=None):
        application = self.look()
        return application.find_all(name, roles) if application else []

    def frame(self, with_items=False):
        """The window that is being used; None while it is not there."""
        application = self.look(with_items)
        return application and next(
            (node for node in application.find_all(roles={self.frame_role})
             if node.name.split(" - ")[0] == self.folder_name), None)

    def new_tab(self):
        """Another tab of the same folder, which is used from now on."""
        self.focus()
        keys("ctrl+t")
        wait_for("the tab", self.has_selected_nothing)

    def former_tab(self):
        self.focus()
        keys("ctrl+Prior")

    def split(self):
        """Shows the folder twice, beside each other; the right one is used from now on."""
        def views():
            return len(self.frame().find_all(roles=self.view_roles))
        before = views()
        self.focus()
        keys("F3")
        wait_for("the other half", lambda: views() > before)
        self.click_blank()

    def go_to(self, folder):
        """Shows another folder where this one is."""
        self.focus()
        keys("ctrl+l")
        subprocess.run(["xdotool", "type", "--delay", "20", str(folder)], check=True)
        keys("Return")
        self.use_window(os.path.basename(folder))

    # Items of the folder.

    def view(self, with_items=False):
        """What holds the items; None while there is none."""
        frame = self.frame(with_items)
        return next(reversed(frame.find_all(roles=self.view_roles)), None) if frame else None

    def item(self, name):
        view = self.view(with_items=True)
        return view and view.find(name, self.item_roles)

    def wait_for_item(self, name):
        return wait_for(f"the item {name!r}", lambda: self.item(name))

    def select(self, *names):
        """Selects just these items."""
        def selected():
            for index, name in enumerate(names):
                item = self.wait_for_item(name)
                if index == 0:
                    self.focus()
                click(*self.point_on(item), modifier="ctrl" if index else None)
            try:
                return wait_for("the selection", lambda: self.has_selected(names), 4)
            except AssertionError:
                return False
        # An item may move away below the pointer while the view is being arranged.
        wait_for(f"the selection of {names}", selected)

    def point_on(self, item):
        """Where a click hits the item."""
        x, y, width, height = item.extents()
        return x + min(width, 60) // 2, y + height // 2

    def select_all(self, count):
        """Selects everything in the folder, which must be that many items."""
        self.click_blank()
        keys("ctrl+a")
        wait_for(f"the selection of {count} items", lambda: self.has_text(
            f"{count} items selected", f"Selection: {count} files", f"{count:,} Files selected"))

    def has_selected(self, names):
        """Whether these are selected, as the file manager tells the user."""
        if len(names) > 1:
            return self.has_text(f"{len(names)} items selected", f"Selection: {len(names)} files")
        return self.has_text(f"“{names[0]}” selected", f'"{names[0]}" selected')

    def has_text(self, *beginnings):
        """Whether the window's status begins with one of these."""
        frame = self.frame()
        return frame is not None and any(
            node.name.startswith(beginnings) for node in frame.find_all(roles={"statusbar", "label"}))

    def has_selected_nothing(self):
        """Whether the window's status tells of the whole folder."""
        frame = self.frame()
        return frame is not None and not any(
            " selected" in node.name for node in frame.find_all(roles={"statusbar", "label"}))

    def click_blank(self, button=1):
        """A click beside all items."""
        x, y, width, height = wait_for("the view", self.view).extents()
        self.focus()
        click(x + width - 40, y + height - 40, button)

    def focus(self):
        """Brings the window that is being used before all others."""
        window = wait_for("a window to focus", lambda: subprocess.run(
            ["xdotool", "search", "--onlyvisible", "--name", f"^{self.folder_name}( [-—] .*)?$"],
            capture_output=True, text=True, check=False).stdout.split())[0]
        subprocess.run(["xdotool", "windowraise", window, "windowfocus", "--sync", window],
                       check=True)

    # The context menu.

    def open_menu(self):
        """Of what is selected; its entries."""
        keys("shift+F10")
        return self.wait_for_menu()

    def open_background_menu(self):
        self.click_blank(button=3)
        return self.wait_for_menu()

    def wait_for_menu(self):
        return wait_for("the menu", self.menu)

    def close_menu(self):
        def closed():
            if self.menu() is None:
                return True
            keys("Escape")
            return False
        wait_for("the end of the menu", closed)

    def menu(self):
        """The open menu, as an entry; None without one."""
        for window in self.look().children:
            if window.role == "window":
                menu = window.find(roles={"menu"})
                if menu is not None and menu.has(accessible.SHOWING):
                    return Entry(menu, [entry_of(node) for node in entry_nodes(menu)])
        return None

    def entry(self, *titles):
        """The entry of the open menu with these titles on the way to it; None without it. A number
        stands for the entry of any title at that place."""
        entry = self.menu()
        for title in titles:
            if entry is None or entry.entries is None:
                return None
            if isinstance(title, int):
                entry = entry.entries[title] if title < len(entry.entries) else None
            else:
                entry = entry.member(title)
        return entry

    def wait_for_entry(self, *titles):
        return wait_for(f"the menu entry {titles}", lambda: self.entry(*titles))

    def choose(self, *titles):
        """Chooses an entry of the open menu by the titles on the way to it."""
        for depth in range(1, len(titles) + 1):
            entry = wait_for(f"the menu entry {titles[:depth]} to be seen",
                             lambda: self.seen_entry(*titles[:depth]))
            assert entry.is_enabled, f"{titles[:depth]} is disabled"
            assert entry.node.do_action(), f"{titles[:depth]} cannot be chosen"

    def seen_entry(self, *titles):
        entry = self.entry(*titles)
        return entry if entry and entry.node.has(accessible.SHOWING) else None


def entry_nodes(node):
    """The entries of a menu of GTK 3, or of an entry's submenu."""
    return [child for child in node.children
            if child.role in MENU_ROLES and child.has(accessible.VISIBLE)]


def entry_of(node):
    return Entry(node, [entry_of(child) for child in entry_nodes(node)]
                 if node.role == "menu" else None)


class Nautilus(FileManager):
    name = "nautilus"
    module_folder = f"{LIBRARIES}/nautilus/extensions-4"
    item_roles = {"grid cell"}
    view_roles = {"grid"}
    frame_role = "window"

    def command(self, folder):
        return ["nautilus", "--new-window", folder]

    def menu(self):
        for popover in self.find_all(roles={"menu"}):
            pages = pages_of(popover)
            if pages and popover.extents()[2] > 0:
                return Entry(popover, entries_of_page(pages[0], pages[1:]))
        return None

    def seen_entry(self, *titles):
        entry = self.entry(*titles)
        return entry if entry and entry.node.extents()[2] > 0 else None


def pages_of(popover):
    """The pages of a menu of GTK 4: the main one, and one for each submenu."""
    stack = popover
    for _ in range(4):
        if not stack.children:
            return []
        stack = stack.children[0]
    return [page for page in stack.children if page.find(roles={"menu item"})]


def entries_of_page(page, pages):
    """The entries of a page, but for the one that leads back from it."""
    entries = []
    for node in page.find_all(roles={"menu item"}):
        if node in page.children:
            continue
        has_submenu = node.find("GtkBuiltinIcon") is not None
        entries.append(Entry(node, next(
            (entries_of_page(other, pages) for other in pages
             if other.children[0].name == node.name), []) if has_submenu else None))
    return entries


class Caja(FileManager):
    name = "caja"
    module_folder = f"{LIBRARIES}/caja/extensions-2.0"
    item_roles = {"icon"}
    view_roles = {"layered pane"}

    def command(self, folder):
        return ["caja", "--no-desktop", "--geometry=1100x700", folder]


class Nemo(FileManager):
    name = "nemo"
    module_folder = f"{LIBRARIES}/nemo/extensions-3.0"

    def __init__(self, desktop):
        super().__init__(desktop)
        desktop.write(".config/glib-2.0/settings/keyfile",
                      "[org/nemo/preferences]\ndefault-folder-viewer='list-view'\n")

    def command(self, folder):
        return ["nemo", "--no-desktop", "--geometry=1000x700", folder]


class Thunar(FileManager):
    name = "thunar"
    module_folder = f"{LIBRARIES}/thunarx-3"

    def command(self, folder):
        return ["thunar", folder]

    def open(self, folder=None):
        subprocess.run(["xfconf-query", "-c", "thunar", "-p", "/last-view", "-n", "-t", "string",
                        "-s", "ThunarDetailsView"], check=True)
        super().open(folder)

    def has_selected(self, names):
        if len(names) > 1:
            return super().has_selected(names)
        view = self.view(with_items=True)
        return view is not None and names[0] in {
            node.name for node in view.walk() if node.has(accessible.SELECTED)}


class Place:
    """Where an entry of a menu of Qt is on the screen; used as a node is."""

    def __init__(self, name, is_enabled, place):
        self.name = name
        self.is_enabled = is_enabled
        self.place = place

    def has(self, state):
        return self.is_enabled if state == accessible.SENSITIVE else self.place is not None

    def do_action(self, _=None):
        click(*self.place)
        return True


class Dolphin(FileManager):
    """Menus are read from what an observer in the process writes, for they are not on the
    accessibility bus, and chosen from by the mouse."""
    name = "dolphin"
    item_roles = {"cell"}
    view_roles = {"table"}
    trash_window = "trash:///"
    picture_width = 1240

    def install_module(self):
        self.desktop.write(".config/kdeglobals", "[KDE]\nSingleClick=false\n")
        self.menus = self.desktop.work / "menus.json"
        os.environ.update(
            QT_PLUGIN_PATH=f"{self.desktop.build}/lib/dolphin:{self.desktop.build}/tests/plugins",
            QT_QPA_GENERIC_PLUGINS="tervano-menu-observer", TERVANO_MENUS=str(self.menus),
            QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")

    def command(self, folder):
        return ["dolphin", "--new-window", folder]

    def look(self, with_items=False):
        # Each window is a process of its own.
        self.expect_running()
        everything = accessible.Node("", "")
        for process in self.desktop.processes_named("dolphin"):
            application = accessible.application(process, self.closed_roles(with_items))
            everything.children += application.children if application else []
        return everything

    def has_selected(self, names):
        return {item.name for item in self.selected_items()} == set(names)

    def selected_items(self):
        view = self.view(with_items=True)
        return [node for node in view.find_all(roles=self.item_roles)
                if node.has(accessible.SELECTED)] if view else []

    def open_menu(self):
        click(*self.point_on(wait_for("a selected item", self.selected_items)[0]), button=3)
        return self.wait_for_menu()

    def point_on(self, item):
        # On the name: beside it and a small picture lies the folder.
        x, y, width, height = item.extents()
        return x + width // 2, y + height - 12

    def menu(self):
        try:
            menus = json.loads(self.menus.read_text())
        except FileNotFoundError:
            return None
        return Entry(Place("", True, None), entries_of_qt(menus[-1]["entries"])) if menus else None


def entries_of_qt(entries):
    found = []
    for entry in entries:
        found.append(Entry(Place(entry["title"], entry["isEnabled"], entry["place"]),
                           None if entry["entries"] is None else entries_of_qt(entry["entries"])))
        found[-1].has_icon = entry["hasIcon"]
    return found


MANAGERS = {manager.name: manager for manager in (Nautilus, Caja, Nemo, Thunar, Dolphin)}
