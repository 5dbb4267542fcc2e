"""The button with a menu of its own, in the file managers that have a place for one."""
import json
import subprocess

import accessible
from desktop import wait_for
from desktop_test import DesktopTest, main
from golden import check
from golden_test import add_list


class ToolbarTest(DesktopTest):
    def button(self):
        """The button above the files; None while it is not shown."""
        frame = self.manager.frame()
        return frame and next(
            (node for node in reversed(frame.find_all("Tervano", {"push button"}))
             if node.has(accessible.SHOWING)), None)

    def open_toolbar_menu(self):
        button = wait_for("the button", self.button)
        self.assertTrue(button.do_action())
        return self.manager.wait_for_menu()

    def test_the_button_is_shown_while_it_is_wanted(self):
        self.manager.open()
        wait_for("the button", self.button)
        # What has a toolbar item beside it keeps that one until another folder is shown.
        items = self.toolbar_items()
        self.desktop.tervano("prefs", "set", "showIconInToolbar", "no")
        wait_for("the end of the button", lambda: len(self.buttons()) == items)
        self.desktop.tervano("prefs", "set", "showIconInToolbar", "yes")
        wait_for("the button again", lambda: len(self.buttons()) == items + 1)

    def buttons(self):
        frame = self.manager.frame()
        return [node for node in frame.find_all("Tervano", {"push button"})
                if node.has(accessible.SHOWING)]

    def toolbar_items(self):
        return sum(len(bar.find_all("Tervano", {"push button"}))
                   for bar in self.manager.find_all(roles={"tool bar"}))

    def test_the_menus_of_the_toolbar_with_and_without_actions(self):
        add_list(self)
        self.manager.open()
        check(self, "toolbar", self.open_toolbar_menu().entries)
        self.manager.close_menu()
        for action in json.loads(self.desktop.tervano("list", "--json")):
            self.desktop.tervano("disable", action["uid"])
        menu = wait_for("the empty menu", self.empty_menu)
        self.assertFalse(menu.entries[0].is_enabled)
        check(self, "toolbar-empty", menu.entries)

    def empty_menu(self):
        """The toolbar menu when it says that there are no actions; None, and closed, before."""
        menu = self.open_toolbar_menu()
        if menu.titles() == ["No Actions Enabled"]:
            return menu
        self.manager.close_menu()
        return None

    def test_the_menu_has_no_wrapper_and_acts_on_the_folder(self):
        self.add_move("Move away")
        group = self.desktop.tervano("add", "group-move", "--title", "Sort")
        self.add_move("Member", "--into", group)
        self.manager.open()
        menu = self.open_toolbar_menu()
        self.assertEqual(menu.titles(), ["Move away", "Sort"])
        self.manager.choose("Sort", "Member")
        wait_for("the move", (self.desktop.target / "files" / "alpha.txt").exists)

    def test_the_trash_has_no_action(self):
        self.add_move("Move away")
        subprocess.run(["gio", "trash", self.desktop.files / "alpha.txt"], check=True)
        self.manager.open("trash:///")
        self.manager.select("alpha.txt")
        self.assertEqual(self.open_toolbar_menu().titles(), ["No Actions Enabled"])

    def test_what_is_no_longer_selected_is_left_alone(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.click_blank()
        wait_for("the end of the selection", lambda: not self.manager.has_selected(["alpha.txt"]))
        self.open_toolbar_menu()
        self.manager.choose("Move away")
        wait_for("the move", (self.desktop.target / "files" / "alpha.txt").exists)


if __name__ == "__main__":
    main()
