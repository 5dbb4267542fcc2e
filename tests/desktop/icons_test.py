"""The pictures beside the entries, in the file manager of whose menus they are told."""
from desktop import wait_for
from desktop_test import DesktopTest, main


class IconsDesktopTest(DesktopTest):
    def test_every_entry_has_its_picture(self):
        group = self.desktop.tervano("add", "group-move", "--title", "Sort")
        self.add_move("Member", "--into", group)
        drawn = self.desktop.build / "share/tervano/icons/icon-copy.svg"
        self.add_move("Drawn", "--icon", str(drawn))
        self.manager.open()
        self.manager.select("alpha.txt")
        wait_for("the pictures", self.next_menu_has_pictures)

    def next_menu_has_pictures(self):
        self.manager.open_menu()
        paths = [("Tervano",), ("Tervano", "Sort"), ("Tervano", "Sort", "Member"),
                 ("Tervano", "Drawn")]
        found = [self.manager.wait_for_entry(*path).has_icon for path in paths]
        self.manager.close_menu()
        return all(found)


if __name__ == "__main__":
    main()
