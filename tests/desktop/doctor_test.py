"""What `tervano doctor` says of a real file manager with the module."""
import json
import subprocess

from desktop import wait_for
from desktop_test import DesktopTest, main

NAMES = {"nautilus": "GNOME Files", "caja": "Caja", "nemo": "Nemo", "thunar": "Thunar"}
LOADS_AT_START = ("nautilus", "caja", "nemo")


class DoctorDesktopTest(DesktopTest):
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
        folder = self.manager.module_folder
        subprocess.run(["umount", folder], check=True)
        self.manager.open()
        subprocess.run(["mount", "--bind", self.desktop.work / "modules", folder], check=True)
        if self.manager.name not in LOADS_AT_START:
            self.assertIsNone(self.state_of_running())
            return
        self.assertEqual(self.state_of_running(), "broken")
        self.manager.close()
        self.manager.open()
        wait_for("the module", lambda: self.state_of_running() == "OK")


if __name__ == "__main__":
    main()
