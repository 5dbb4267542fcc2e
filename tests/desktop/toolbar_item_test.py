"""The item in the toolbar itself, in the file manager that has items there."""
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

    def test_no_item_is_there_while_none_is_wanted(self):
        self.desktop.tervano("prefs", "set", "showIconInToolbar", "no")
        self.manager.open()
        self.manager.wait_for_item("alpha.txt")
        self.assertEqual(self.items(), [])


if __name__ == "__main__":
    main()
