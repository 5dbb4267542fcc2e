"""What the file managers show of the menu, compared with tests/golden/desktop, which
tests/golden/rebaseline writes anew."""
import os
import pathlib

from desktop_test import DesktopTest, main

GOLDEN = pathlib.Path(__file__).parent.parent / "golden" / "desktop"


class GoldenTest(DesktopTest):
    def setUp(self):
        super().setUp()
        tervano = self.desktop.tervano
        self.add_move("Move away")
        group = tervano("add", "group-move", "--title", "Move _to")
        for title in ("Archive", "<Desk> & \"drawer\""):
            self.add_move(title, "--into", group)
        pictures = tervano("add", "group-convert", "--title", "Convert", "--types", "public.image")
        tervano("add", "convert", "--format", "jpeg", "--title", "To JPEG", "--into", pictures)
        tervano("disable", tervano("add", "convert", "--format", "png", "--title", "To PNG",
                                   "--into", pictures))
        tervano("add", "group-new-file", "--title", "Empty group")
        tervano("add", "bundled", "Copy Path")
        tervano("disable", tervano("add", "mail", "--title", "Disabled"))
        tervano("add", "secure-delete", "--title", "Delete for good")

    def check(self, case, entries):
        """Compares the entries with those of the golden file."""
        path = GOLDEN / f"{self.manager.name}-{case}.txt"
        text = text_of(entries)
        if os.environ.get("TERVANO_REBASELINE"):
            path.write_text(text)
        self.assertEqual(text, path.read_text() if path.exists() else "")

    def wrapper(self, menu):
        return [entry for entry in menu.entries if entry.title == "Tervano"]

    def test_the_menu_of_a_picture(self):
        self.manager.open()
        self.manager.select("beta.png")
        self.check("picture", self.wrapper(self.manager.open_menu()))

    def test_the_menu_of_a_picture_and_a_text(self):
        self.manager.open()
        self.manager.select("alpha.txt", "beta.png")
        self.check("picture-and-text", self.wrapper(self.manager.open_menu()))

    def test_the_menu_of_a_folder_s_background(self):
        self.manager.open()
        self.check("background", self.wrapper(self.manager.open_background_menu()))


def text_of(entries, depth=0):
    """One line for each entry, submenus indented below theirs."""
    text = ""
    for entry in entries:
        text += "  " * depth + entry.title
        text += " >" if entry.entries is not None else ""
        text += "\n" if entry.is_enabled else " (disabled)\n"
        text += text_of(entry.entries or [], depth + 1)
    return text


if __name__ == "__main__":
    main()
