"""What every test in a file manager begins with: TEST.py BUILD_FOLDER FILE_MANAGER Class.test.
A session lasts for one test."""
import sys
import unittest

from desktop import Desktop, wait_for
from file_managers import MANAGERS


class DesktopTest(unittest.TestCase):
    """A desktop with a file manager that is not started yet, and a folder with three files."""
    desktop_class = Desktop

    def setUp(self):
        self.desktop = self.desktop_class(DesktopTest.build)
        self.desktop.start(["dunst"])
        for name in ("alpha.txt", "beta.png", "gamma.txt"):
            self.add_file(name)
        # The windows of the target would lie on the one that is used.
        self.desktop.tervano("prefs", "set", "showFileOnMoveCopyComplete", "no")
        self.manager = DesktopTest.manager_class(self.desktop)

    def run(self, result=None):
        super().run(result)
        # Without one the desktop itself has not started.
        if not result.wasSuccessful() and hasattr(self, "manager"):
            name = f"failed-{self.manager.name}-{self._testMethodName}"
            self.desktop.screenshot(name)
            print(f"{name}.png is in the folder screenshots", file=sys.stderr)

    def add_file(self, name):
        (self.desktop.files / name).write_text(name)

    def add_move(self, title, *options):
        """An action that moves to the target; its uid."""
        return self.desktop.tervano("add", "move", "--title", title, "--to",
                                    str(self.desktop.target), *options)

    def was_moved(self, *names):
        return all((self.desktop.target / name).exists() and
                   not (self.desktop.files / name).exists() for name in names)

    def wait_for_move(self, *names):
        wait_for(f"the move of {names}", lambda: self.was_moved(*names))


def main():
    DesktopTest.build = sys.argv.pop(1)
    DesktopTest.manager_class = MANAGERS[sys.argv.pop(1)]
    unittest.main()
