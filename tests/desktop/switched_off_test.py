"""What `tervano doctor` says of a module that the user has switched off in the file manager."""
from doctor_test import NAMES, DoctorDesktopTest
from desktop_test import main

SWITCHES = {
    "caja": (".config/glib-2.0/settings/keyfile",
             "[org/mate/caja/extensions]\ndisabled-extensions=['libtervano-caja']\n"),
    "nemo": (".config/glib-2.0/settings/keyfile",
             "[org/nemo/preferences]\ndefault-folder-viewer='list-view'\n"
             "[org/nemo/plugins]\ndisabled-extensions=['TervanoMenuProvider']\n"),
    "dolphin": (".config/kservicemenurc", "[Show]\ntervano=false\n")}


class SwitchedOffDesktopTest(DoctorDesktopTest):
    def test_a_module_that_the_user_has_switched_off_is_told(self):
        self.desktop.write(*SWITCHES[self.manager.name])
        self.add_move("Move away")
        self.manager.open()
        self.assertIsNone(self.entry_for("alpha.txt"))
        finding = self.findings()[1][NAMES[self.manager.name]]
        self.assertEqual(finding["state"], "broken")
        self.assertIn("is switched off in the", finding["detail"])


if __name__ == "__main__":
    main()
