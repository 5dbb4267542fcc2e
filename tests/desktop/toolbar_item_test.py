"""The item in the toolbar itself, in the file manager that has items there."""
import accessible
from desktop import wait_for
from desktop_test import DesktopTest, main


class ToolbarItemTest(DesktopTest):
    def items(self):
        return [item for bar in self.manager.find_all(roles={"tool bar"})
                for item in bar.find_all("Tervano", {"push button"})]

    def test_the_item_s_menu_acts_on_the_selection(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        wait_for("the item", self.items)[0].do_action()
        self.assertEqual(self.manager.wait_for_menu().titles(), ["Move away"])
        self.manager.choose("Move away")
        self.wait_for_move("alpha.txt")
        self.assertTrue((self.desktop.files / "gamma.txt").exists())

    def shown_items(self):
        return [item for item in self.items() if item.has(accessible.SHOWING)]

    def test_the_item_goes_and_comes_as_it_is_wanted(self):
        self.manager.open()
        wait_for("the item", self.shown_items)
        for _ in range(2):
            self.desktop.tervano("prefs", "set", "showIconInToolbar", "no")
            wait_for("the end of the item", lambda: not self.shown_items())
            self.desktop.tervano("prefs", "set", "showIconInToolbar", "yes")
            wait_for("the item again", self.shown_items)

    def test_the_item_acts_on_the_half_of_the_window_that_is_used(self):
        self.add_move("Move away")
        other = self.desktop.home / "other"
        other.mkdir()
        (other / "delta.txt").write_text("")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.split()
        self.manager.go_to(other)
        self.manager.select("delta.txt")
        wait_for("the item", self.items)[0].do_action()
        self.manager.wait_for_menu()
        self.manager.choose("Move away")
        wait_for("the move", (self.desktop.target / "delta.txt").exists)
        self.assertTrue((self.desktop.files / "alpha.txt").exists())

    def test_no_item_is_there_while_none_is_wanted(self):
        self.desktop.tervano("prefs", "set", "showIconInToolbar", "no")
        self.manager.open()
        self.manager.wait_for_item("alpha.txt")
        self.assertEqual(self.items(), [])


if __name__ == "__main__":
    main()
