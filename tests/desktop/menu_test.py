"""The context menu in a real file manager."""
from desktop_test import DesktopTest, main


class MenuTest(DesktopTest):
    def test_a_chosen_entry_moves_the_selected_file(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        self.wait_for_move("alpha.txt")
        self.desktop.wait_for_notification("Finished moving 'alpha.txt'")
        self.assertTrue((self.desktop.files / "gamma.txt").exists())

    def test_a_group_s_member_moves_all_selected_files(self):
        group = self.desktop.tervano("add", "group-move", "--title", "Sort")
        self.add_move("Move away", "--into", group)
        self.manager.open()
        self.manager.select("alpha.txt", "gamma.txt")
        self.manager.open_menu()
        self.manager.choose("Tervano", "Sort", "Move away")
        self.wait_for_move("alpha.txt", "gamma.txt")
        self.assertTrue((self.desktop.files / "beta.png").exists())


if __name__ == "__main__":
    main()
