"""The button above icons, of which the file manager tells nothing but their names."""
import os

from desktop import click, keys, wait_for
from desktop_test import main
from toolbar_test import ToolbarTest


class IconsDesktopTest(ToolbarTest):
    def open_icons(self, folder=None):
        self.desktop.write(".config/glib-2.0/settings/keyfile",
                           "[org/nemo/preferences]\ndefault-folder-viewer='icon-view'\n")
        self.manager.open(folder)
        self.click_beside_icons()

    def click_beside_icons(self):
        x, y, width, height = self.manager.frame().extents()
        self.manager.focus()
        click(x + width - 60, y + height - 80)

    def select_by_keys(self, *names):
        """Goes from icon to icon, which must read so in this order, to the last one."""
        self.click_beside_icons()
        for index, name in enumerate(names):
            keys("Right" if index else "Home")
            wait_for(f"the selection of {name}", lambda: self.manager.has_selected([name]))

    def test_the_menu_acts_on_the_selected_icon(self):
        self.add_move("Move away")
        self.open_icons()
        self.select_by_keys("alpha.txt", "beta.png")
        self.choose_from_toolbar()
        self.wait_for_move("beta.png")
        self.assertEqual(self.remaining(), ["alpha.txt", "gamma.txt"])

    def test_the_menu_acts_on_all_selected_icons(self):
        self.add_move("Move away")
        names = ["100% #1.txt", "\u5de5\u4f5c.txt", "a b.txt", "-v.txt", "x" * 200 + ".txt"]
        for name in names:
            self.add_file(name)
        names += self.remaining()
        self.open_icons()
        keys("ctrl+a")
        wait_for("the selection", lambda: self.manager.has_text("8 items selected"))
        self.choose_from_toolbar()
        wait_for("the move", lambda: not self.remaining())
        self.assertEqual(sorted(os.listdir(self.desktop.target)), sorted(set(names)))

    def test_without_a_selected_icon_the_menu_acts_on_the_folder(self):
        self.add_move("Move away")
        self.open_icons()
        self.choose_from_toolbar()
        wait_for("the move", (self.desktop.target / "files" / "alpha.txt").exists)

    def test_an_icon_that_reads_like_another_file_is_left_alone(self):
        self.add_move("Move away")
        entry = "[Desktop Entry]\nType=Application\nName=alpha.txt\nExec=true\n"
        (self.desktop.files / "zeta.desktop").write_text(entry)
        (self.desktop.files / "zeta.desktop").chmod(0o755)
        self.open_icons()
        keys("ctrl+a")
        wait_for("the selection", lambda: self.manager.has_text("4 items selected"))
        self.assertEqual(self.open_toolbar_menu().titles(), ["No Actions Enabled"])

    def test_a_name_that_is_not_utf_8_is_left_alone(self):
        self.add_move("Move away")
        with open(os.fsencode(self.desktop.files) + b"/bad \xff.txt", "w", encoding="utf-8"):
            pass
        self.open_icons()
        keys("ctrl+a")
        wait_for("the selection", lambda: self.manager.has_text("4 items selected"))
        self.assertEqual(self.open_toolbar_menu().titles(), ["No Actions Enabled"])


if __name__ == "__main__":
    main()
