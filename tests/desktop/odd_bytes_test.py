"""Names that are no text, in the file managers that can name such files; the programs of Qt cannot."""
import os

from desktop import wait_for
from desktop_test import DesktopTest, main


class OddBytesTest(DesktopTest):
    def test_a_name_that_is_not_utf_8_is_refused_and_nothing_happens(self):
        folder = os.fsencode(self.desktop.home / "odd")
        os.mkdir(folder)
        names = [b"bad \xff\xfe.txt", b"good.txt"]
        for name in names:
            with open(os.path.join(folder, name), "w", encoding="utf-8"):
                pass
        self.add_move("Move away")
        self.manager.open(os.fsdecode(folder))
        self.manager.select_all(2)
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        wait_for("the refusal", lambda: "Could not convert to JSON" in
                 self.desktop.log_of(self.manager.name))
        self.manager.close_menu()
        self.manager.select("good.txt")
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        wait_for("the other move", (self.desktop.target / "good.txt").exists)
        self.assertEqual(os.listdir(folder), [b"bad \xff\xfe.txt"])


if __name__ == "__main__":
    main()
