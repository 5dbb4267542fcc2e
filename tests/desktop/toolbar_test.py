"""The button with a menu of its own, in the file managers that have a place for one."""
import json
import os
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

    def strip_buttons(self):
        """The buttons above the files, without the items of the toolbar."""
        frame = self.manager.frame()
        items = [node.path for bar in self.manager.find_all(roles={"tool bar"})
                 for node in bar.find_all("Tervano", {"push button"})]
        return [node for node in frame.find_all("Tervano", {"push button"})
                if node.has(accessible.SHOWING) and node.path not in items] if frame else []

    def open_toolbar_menu(self, button=None):
        self.assertTrue((button or wait_for("the button", self.button)).do_action())
        return self.manager.wait_for_menu()

    def test_the_button_is_shown_while_it_is_wanted(self):
        self.manager.open()
        wait_for("the button", self.strip_buttons)
        self.desktop.tervano("prefs", "set", "showIconInToolbar", "no")
        wait_for("the end of the button", lambda: not self.strip_buttons())
        self.desktop.tervano("prefs", "set", "showIconInToolbar", "yes")
        wait_for("the button again", self.strip_buttons)

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

    def choose_from_toolbar(self, button=None):
        """Chooses the action of the toolbar's menu, which must be there."""
        menu = self.open_toolbar_menu(button)
        self.assertEqual(menu.titles(), ["Move away"])
        self.manager.choose("Move away")

    def remaining(self):
        return sorted(os.listdir(self.desktop.files))

    def test_the_menu_acts_on_what_is_selected(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt", "beta.png")
        self.choose_from_toolbar()
        self.wait_for_move("alpha.txt", "beta.png")
        self.assertEqual(self.remaining(), ["gamma.txt"])

    def test_what_was_selected_for_an_earlier_menu_is_left_alone(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_menu()
        self.manager.close_menu()
        self.manager.select("gamma.txt")
        self.choose_from_toolbar()
        self.wait_for_move("gamma.txt")
        self.assertEqual(self.remaining(), ["alpha.txt", "beta.png"])

    def test_each_tab_has_its_own_selection(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.new_tab()
        self.manager.select("gamma.txt")
        self.manager.former_tab()
        wait_for("the other tab", lambda: self.manager.has_selected(["alpha.txt"]))
        self.choose_from_toolbar()
        self.wait_for_move("alpha.txt")
        self.assertEqual(self.remaining(), ["beta.png", "gamma.txt"])

    def test_a_tab_without_a_selection_acts_on_its_folder(self):
        self.add_move("Move away")
        other = self.desktop.home / "other"
        other.mkdir()
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.new_tab()
        self.manager.go_to(other)
        self.choose_from_toolbar()
        wait_for("the move", (self.desktop.target / "other").exists)
        self.assertEqual(self.remaining(), ["alpha.txt", "beta.png", "gamma.txt"])

    def test_what_was_selected_in_the_folder_before_is_left_alone(self):
        self.add_move("Move away")
        other = self.desktop.home / "other"
        other.mkdir()
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.go_to(other)
        self.choose_from_toolbar()
        wait_for("the move", (self.desktop.target / "other").exists)
        self.assertEqual(self.remaining(), ["alpha.txt", "beta.png", "gamma.txt"])

    def test_each_half_of_the_window_has_its_own_folder(self):
        self.add_move("Move away")
        other = self.desktop.home / "other"
        other.mkdir()
        (other / "delta.txt").write_text("")
        self.manager.open()
        self.manager.split()
        wait_for("the second button", lambda: len(self.strip_buttons()) == 2)
        self.manager.go_to(other)
        self.manager.select("delta.txt")
        left, right = sorted(self.strip_buttons(), key=lambda node: node.extents()[0])
        self.choose_from_toolbar(right)
        wait_for("the move", (self.desktop.target / "delta.txt").exists)
        self.assertEqual(self.remaining(), ["alpha.txt", "beta.png", "gamma.txt"])
        self.choose_from_toolbar(left)
        wait_for("the move", (self.desktop.target / "files" / "alpha.txt").exists)
        self.assertTrue(other.exists())

    def test_no_half_of_a_window_takes_what_is_selected_in_the_other(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.split()
        wait_for("the second button", lambda: len(self.strip_buttons()) == 2)
        # One of two views of the same folder.
        self.manager.select("gamma.txt")
        left, right = sorted(self.strip_buttons(), key=lambda node: node.extents()[0])
        if self.manager.name == "caja":
            # It does not tell which one, so nothing is done.
            for button in (left, right):
                self.assertEqual(self.open_toolbar_menu(button).titles(), ["No Actions Enabled"])
                self.manager.close_menu()
            return
        self.choose_from_toolbar(right)
        self.wait_for_move("gamma.txt")
        self.manager.select("alpha.txt")
        self.choose_from_toolbar(left)
        wait_for("the move", (self.desktop.target / "files" / "alpha.txt").exists)

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
