"""What `tervano doctor` says of a real file manager with the module."""
import json
import os
import shutil
import subprocess

from desktop_test import DesktopTest, main

NAMES = {"nautilus": "GNOME Files", "caja": "Caja", "nemo": "Nemo", "thunar": "Thunar",
         "dolphin": "Dolphin"}


class DoctorDesktopTest(DesktopTest):
    def setUp(self):
        super().setUp()
        if self.manager.name == "dolphin":
            # A plugin that can vanish; the build's cannot.
            plugins = self.desktop.work / "plugins"
            shutil.copytree(self.desktop.build / "lib/dolphin", plugins)
            self.plugin = plugins / "kf5/kfileitemaction/tervano.so"
            os.environ["QT_PLUGIN_PATH"] = f"{plugins}:{self.desktop.build}/tests/plugins"

    def findings(self):
        done = subprocess.run([self.desktop.build / "bin/tervano", "doctor", "--json"],
                              check=False, capture_output=True, text=True)
        return done.returncode, {one["what"]: one for one in json.loads(done.stdout)}

    def state_of_running(self):
        found = self.findings()[1].get("running " + NAMES[self.manager.name])
        return found and found["state"]

    def test_everything_works_beside_the_running_file_manager(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_menu()
        status, findings = self.findings()
        self.assertEqual(status, 0, findings)
        self.assertEqual(findings[NAMES[self.manager.name]]["state"], "OK")
        self.assertIn(NAMES[self.manager.name], findings["menu"]["detail"])
        self.assertIn("dunst", findings["notification daemon"]["detail"])

    def test_a_file_manager_from_before_the_module_must_be_opened_again(self):
        self.add_move("Move away")
        self.hide_module()
        self.manager.open()
        self.assertIsNone(self.entry_for("alpha.txt"))
        self.show_module()
        if self.manager.name == "dolphin":
            # It looks for plugins whenever it shows a menu.
            self.assertIsNone(self.state_of_running())
            self.assertIsNotNone(self.entry_for("gamma.txt"))
        else:
            self.assertEqual(self.state_of_running(), "broken")
            self.assertIsNone(self.entry_for("gamma.txt"))
            self.manager.close()
            self.manager.open()
            self.assertIsNotNone(self.entry_for("gamma.txt"))
        self.assertEqual(self.state_of_running(), "OK")

    def entry_for(self, name):
        """Ours in the menu of an item, which is closed again."""
        self.manager.select(name)
        entry = self.manager.open_menu().member("Tervano")
        self.manager.close_menu()
        return entry

    def hide_module(self):
        if self.manager.name == "dolphin":
            os.rename(self.plugin, self.desktop.work / "hidden.so")
            self.assertEqual(self.findings()[1]["Dolphin"]["state"], "missing")
        else:
            subprocess.run(["umount", self.manager.module_folder], check=True)

    def show_module(self):
        if self.manager.name == "dolphin":
            os.rename(self.desktop.work / "hidden.so", self.plugin)
        else:
            subprocess.run(["mount", "--bind", self.desktop.work / "modules",
                            self.manager.module_folder], check=True)


if __name__ == "__main__":
    main()
