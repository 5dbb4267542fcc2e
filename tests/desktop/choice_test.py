"""What choosing an entry in a real file manager does, and what it must not do."""
import os
import shutil
import subprocess

import accessible
from desktop import wait_for
from desktop_test import DesktopTest, main


class ChoiceTest(DesktopTest):
    def choose_for(self, names, *titles):
        self.manager.select(*names)
        self.manager.open_menu()
        self.manager.choose("Tervano", *titles)

    def wait_for_end_of_choices(self):
        """Until whatever was chosen before must have been done: one more choice was."""
        self.choose_for(["gamma.txt"], "Move away")
        self.wait_for_move("gamma.txt")

    def test_the_background_menu_acts_on_the_folder(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_background_menu()
        self.manager.choose("Tervano", "Move away")
        wait_for("the move", (self.desktop.target / "files" / "alpha.txt").exists)
        self.assertFalse(self.desktop.files.exists())

    def test_the_folder_s_menu_leaves_the_choice_for_files_alone(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.open_background_menu()
        self.manager.close_menu()
        self.choose_for(["alpha.txt"], "Move away")
        self.wait_for_move("alpha.txt")
        self.assertEqual(sorted(os.listdir(self.desktop.files)), ["beta.png", "gamma.txt"])

    def test_the_selection_of_the_menu_counts_not_an_earlier_one(self):
        group = self.desktop.tervano("add", "group-move", "--title", "Sort")
        self.add_move("Move away", "--into", group)
        self.manager.open()
        for name in ("alpha.txt", "beta.png"):
            self.manager.select(name)
            self.manager.open_menu()
            self.manager.close_menu()
        self.choose_for(["gamma.txt"], "Sort", "Move away")
        self.wait_for_move("gamma.txt")
        self.assertEqual(sorted(os.listdir(self.desktop.files)), ["alpha.txt", "beta.png"])

    def test_two_windows_keep_their_selections(self):
        self.add_move("Move away")
        other = self.desktop.home / "other"
        other.mkdir()
        (other / "delta.txt").write_text("")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_window(other)
        self.manager.select("delta.txt")
        self.manager.use_window("files")
        self.manager.focus()
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        self.wait_for_move("alpha.txt")
        self.assertTrue((other / "delta.txt").exists())
        self.assertTrue((self.desktop.files / "gamma.txt").exists())

    def test_moved_files_are_shown_in_their_folder(self):
        self.desktop.tervano("prefs", "set", "showFileOnMoveCopyComplete", "yes")
        self.add_move("Move away")
        self.manager.open()
        self.choose_for(["alpha.txt"], "Move away")
        self.manager.use_window("target")
        self.manager.wait_for_item("alpha.txt")

    def test_names_with_every_odd_byte_are_moved(self):
        names = ["new\nline.txt", "\"quotes\" 'single'.txt", "100%.txt", "%20.txt", "back\\slash.txt",
                 "-v.txt", "$(HOME) `x`.txt", "工作.txt", "&?#=.txt"]
        folder = self.desktop.home / "odd"
        folder.mkdir()
        for name in names:
            (folder / name).write_text(name)
        self.add_move("Move away")
        self.manager.open(folder)
        self.manager.select_all(len(names))
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        wait_for("the move", lambda: sorted(os.listdir(self.desktop.target)) == sorted(names))
        self.assertEqual(os.listdir(folder), [])

    def test_a_thousand_selected_files_are_moved(self):
        folder = self.desktop.home / "many"
        folder.mkdir()
        for number in range(1000):
            (folder / f"{number}.txt").write_text("")
        self.add_move("Move away")
        self.manager.open(folder)
        self.manager.select_all(1000)
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        wait_for("the move", lambda: len(os.listdir(self.desktop.target)) == 1000, 60)
        self.assertEqual(os.listdir(folder), [])

    def test_items_of_the_trash_are_left_alone(self):
        self.add_move("Move away")
        self.desktop.tervano("add", "secure-delete", "--title", "Delete")
        self.manager.open()
        self.manager.select("gamma.txt")
        self.assertIsNotNone(self.manager.open_menu().member("Tervano"))
        self.manager.close_menu()
        subprocess.run(["gio", "trash", self.desktop.files / "alpha.txt"], check=True)
        self.manager.open_window("trash:///")
        self.manager.select("alpha.txt")
        self.assertIsNone(self.manager.open_menu().member("Tervano"))

    def test_secure_delete_asks_in_a_window_first(self):
        self.desktop.tervano("add", "secure-delete", "--title", "Delete for good")
        self.manager.open()
        self.choose_for(["alpha.txt"], "Delete for good")
        question = wait_for("the question", lambda: self.question("alpha.txt"))
        self.assertTrue((self.desktop.files / "alpha.txt").exists())
        consent = [button for button in question.find_all(roles={"button", "push button"})
                   if button.find("Delete") or button.name == "Delete"]
        self.assertTrue(consent[0].do_action())
        wait_for("the removal", lambda: not (self.desktop.files / "alpha.txt").exists())
        self.assertTrue((self.desktop.files / "gamma.txt").exists())

    def question(self, name):
        """The window that asks about a file."""
        for process in self.desktop.processes_named("tervano-ask"):
            window = accessible.application(process)
            if window and any(name in node.name for node in window.walk()):
                return window
        return None

    def test_a_killed_companion_is_started_anew(self):
        self.add_move("Move away")
        self.manager.open()
        self.choose_for(["alpha.txt"], "Move away")
        self.wait_for_move("alpha.txt")
        companions = self.desktop.processes_named("tervano")
        self.assertTrue(companions)
        for process in companions:
            os.kill(process, 9)
        self.manager.close_menu()
        self.choose_for(["gamma.txt"], "Move away")
        self.wait_for_move("gamma.txt")

    def test_a_choice_on_a_full_disk_loses_nothing_and_is_told(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        container = self.desktop.container
        shown = [path for path in container.iterdir() if path.is_file()]
        kept = {path.name: path.read_bytes() for path in shown}
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", container], check=True)
        for name, content in kept.items():
            (container / name).write_bytes(content)
        with open(container / "filler", "wb", buffering=0) as filler, \
                self.assertRaises(OSError):
            while True:
                filler.write(b"x" * 4096)
        self.manager.open_menu()
        self.manager.choose("Tervano", "Move away")
        self.desktop.wait_for_notification("The chosen files could not be read")
        self.assertEqual(sorted(os.listdir(self.desktop.files)),
                         ["alpha.txt", "beta.png", "gamma.txt"])
        os.remove(container / "filler")
        self.manager.close_menu()
        self.choose_for(["gamma.txt"], "Move away")
        self.wait_for_move("gamma.txt")

    def test_a_choice_after_the_container_was_deleted_loses_nothing_and_is_told(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_menu()
        shutil.rmtree(self.desktop.container)
        self.manager.choose("Tervano", "Move away")
        self.desktop.wait_for_notification("The chosen files could not be read")
        self.assertEqual(sorted(os.listdir(self.desktop.files)),
                         ["alpha.txt", "beta.png", "gamma.txt"])
        self.manager.close_menu()
        self.add_move("Another")
        self.manager.select("gamma.txt")
        # It stands behind what a list that is begun anew holds.
        wait_for("the new list", lambda: "Another" in self.titles_of_next_menu())
        self.choose_for(["gamma.txt"], "Another")
        self.wait_for_move("gamma.txt")

    def test_the_file_manager_survives_a_deleted_container(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_menu()
        self.manager.close_menu()
        shutil.rmtree(self.desktop.container)
        self.manager.open_menu()
        self.manager.close_menu()
        self.add_move("Another")
        wait_for("the new list", lambda: self.next_menu_has(["Another"]))

    def next_menu_has(self, titles):
        return self.titles_of_next_menu() == titles

    def titles_of_next_menu(self):
        wrapper = self.manager.open_menu().member("Tervano")
        self.manager.close_menu()
        return wrapper.titles() if wrapper else []

    def test_the_file_manager_survives_a_corrupt_list(self):
        self.add_move("Move away")
        self.manager.open()
        self.manager.select("alpha.txt")
        self.manager.open_menu()
        self.manager.close_menu()
        good = (self.desktop.container / "Actions.plist").read_bytes()
        for junk in (b"", b"junk" * 1000, b"bplist00" + b"\xff" * 64):
            (self.desktop.container / "Actions.plist").write_bytes(junk)
            self.desktop.tervano("post", "TVDidChangeNotification")
            self.manager.open_menu()
            self.manager.close_menu()
        (self.desktop.container / "Actions.plist").write_bytes(good)
        self.desktop.tervano("post", "TVDidChangeNotification")
        wait_for("the list", lambda: self.next_menu_has(["Move away"]))


if __name__ == "__main__":
    main()
