"""The context menus of a list with something of everything."""
from desktop_test import DesktopTest, main
from golden import check


class GoldenTest(DesktopTest):
    def test_the_menus_of_a_picture_of_two_files_and_of_the_background(self):
        add_list(self)
        self.manager.open()
        self.manager.select("beta.png")
        self.check_wrapper("picture", self.manager.open_menu())
        self.manager.select("alpha.txt", "beta.png")
        self.check_wrapper("picture-and-text", self.manager.open_menu())
        self.check_wrapper("background", self.manager.open_background_menu())

    def check_wrapper(self, case, menu):
        check(self, case, [entry for entry in menu.entries if entry.title == "Tervano"])
        self.manager.close_menu()


def add_list(test):
    tervano = test.desktop.tervano
    test.add_move("Move away")
    group = tervano("add", "group-move", "--title", "Move _to")
    for title in ("Archive", "<Desk> & \"drawer\""):
        test.add_move(title, "--into", group)
    pictures = tervano("add", "group-convert", "--title", "Convert", "--types", "public.image")
    tervano("add", "convert", "--format", "jpeg", "--title", "To JPEG", "--into", pictures)
    tervano("disable", tervano("add", "convert", "--format", "png", "--title", "To PNG",
                               "--into", pictures))
    tervano("add", "group-new-file", "--title", "Empty group")
    tervano("add", "bundled", "Copy Path")
    tervano("disable", tervano("add", "mail", "--title", "Disabled"))
    tervano("add", "secure-delete", "--title", "Delete for good")


if __name__ == "__main__":
    main()
