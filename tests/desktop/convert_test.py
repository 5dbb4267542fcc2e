"""Pictures converted from the menu of a real file manager."""
import subprocess

from desktop import wait_for
from desktop_test import DesktopTest, main


class ConvertTest(DesktopTest):
    def test_chosen_pictures_are_converted_beside_themselves(self):
        group = self.desktop.tervano("add", "group-convert", "--title", "Convert",
                                     "--types", "public.image")
        self.desktop.tervano("add", "convert", "--format", "jpeg", "--title", "To JPEG",
                             "--into", group)
        pictures = {"beta.png": "red", "delta.png": "lime"}
        for name, colour in pictures.items():
            subprocess.run(["convert", "-size", "40x30", f"xc:{colour}",
                            self.desktop.files / name], check=True)
        (self.desktop.files / "beta.jpg").write_text("was there before")
        before = {name: (self.desktop.files / name).read_bytes() for name in pictures}
        self.manager.open()
        self.manager.select(*pictures)
        self.manager.open_menu()
        self.manager.choose("Tervano", "Convert", "To JPEG")
        self.desktop.wait_for_notification("Finished converting")
        for made, colour in (("beta 2.jpg", "#FE0000"), ("delta.jpg", "#00FF00")):
            path = self.desktop.files / made
            wait_for(f"the picture {made}", path.exists)
            self.assertEqual(description_of(path)[:3], ["JPEG", "40", "30"])
            self.assertLess(difference(path, colour), 0.05)
        self.assertEqual((self.desktop.files / "beta.jpg").read_text(), "was there before")
        for name, content in before.items():
            self.assertEqual((self.desktop.files / name).read_bytes(), content)


def description_of(picture):
    """Format, width and height, as a program that is not ours reads them."""
    return subprocess.run(["identify", "-format", "%m %w %h", picture], check=True,
                          capture_output=True, text=True).stdout.split()


def difference(picture, colour):
    """How far the picture is from that colour all over: 0 is equal, 1 the opposite."""
    shown = subprocess.run(["compare", "-metric", "RMSE", picture, "-size", "40x30",
                            f"xc:{colour}", "null:"], check=False, capture_output=True, text=True)
    return float(shown.stderr.split("(")[1].rstrip(")"))


if __name__ == "__main__":
    main()
