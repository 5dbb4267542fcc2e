"""What stands in the context menu of a real file manager."""
from desktop import wait_for
from desktop_test import DesktopTest, main


class MenuContentsTest(DesktopTest):
    def entries_for(self, *names):
        """The titles below the wrapper in the menu of these items, nested; the menu is closed."""
        self.manager.select(*names)
        wrapper = self.manager.open_menu().member("Tervano")
        self.manager.close_menu()
        return tree_of(wrapper) if wrapper else None

    def test_entries_stand_in_order_without_disabled_ones_and_empty_groups(self):
        tervano = self.desktop.tervano
        self.add_move("First")
        tervano("disable", self.add_move("Disabled"))
        group = tervano("add", "group-move", "--title", "Group")
        self.add_move("Zeta", "--into", group)
        tervano("disable", self.add_move("Disabled member", "--into", group))
        self.add_move("Alpha", "--into", group)
        group = tervano("add", "group-move", "--title", "Members disabled")
        tervano("disable", self.add_move("Member", "--into", group))
        tervano("add", "group-move", "--title", "Empty")
        other = tervano("add", "group-move", "--title", "Disabled group")
        self.add_move("Other member", "--into", other)
        tervano("disable", other)
        self.add_move("Last")
        self.manager.open()
        self.assertEqual(self.entries_for("alpha.txt"),
                         ["First", ("Group", ["Zeta", "Alpha"]), "Last"])

    def test_every_selected_item_must_fit_by_its_name(self):
        self.add_move("Pictures", "--types", "public.image")
        self.add_move("Folders", "--types", "public.folder")
        (self.desktop.files / "Photos.jpg").mkdir()
        (self.desktop.files / "folder").mkdir()
        self.manager.open()
        self.assertEqual(self.entries_for("beta.png"), ["Pictures"])
        self.assertEqual(self.entries_for("Photos.jpg"), ["Pictures"])
        self.assertEqual(self.entries_for("folder"), ["Folders"])
        # Without a fitting action there is no entry at all.
        self.assertIsNone(self.entries_for("alpha.txt"))
        self.assertIsNone(self.entries_for("alpha.txt", "beta.png"))

    def test_titles_are_shown_on_one_line_to_the_last_character(self):
        titles = ["a_b__c _d", "<b>bold</b> &amp; & Co", "工作 ünï \U0001f600", "x" * 200, "50% %s %n"]
        for title in [*titles, "one\ntwo\tthree"]:
            self.add_move(title)
        self.manager.open()
        self.assertEqual(self.entries_for("alpha.txt"), [*titles, "one two three"])

    def test_without_the_wrapper_the_entries_stand_in_the_menu(self):
        self.desktop.tervano("prefs", "set", "useSubmenu", "no")
        self.add_move("Move away")
        group = self.desktop.tervano("add", "group-move", "--title", "Sort")
        self.add_move("Member", "--into", group)
        self.manager.open()
        self.manager.select("alpha.txt")
        menu = self.manager.open_menu()
        titles = menu.titles()
        self.assertNotIn("Tervano", titles)
        self.assertEqual(titles.index("Sort"), titles.index("Move away") + 1)
        self.assertEqual(menu.member("Sort").titles(), ["Member"])
        self.manager.choose("Move away")
        self.wait_for_move("alpha.txt")

    def test_groups_of_the_same_title_keep_their_own_members(self):
        for title in ("One", "Two"):
            group = self.desktop.tervano("add", "group-move", "--title", "Group")
            self.add_move(title, "--into", group)
        self.manager.open()
        self.assertEqual(self.entries_for("alpha.txt"),
                         [("Group", ["One"]), ("Group", ["Two"])])
        # Nor do they mix with those of another menu.
        self.assertEqual(self.entries_for("gamma.txt"),
                         [("Group", ["One"]), ("Group", ["Two"])])
        self.manager.open_menu()
        self.manager.choose("Tervano", 1, "Two")
        self.wait_for_move("gamma.txt")

    def test_a_changed_list_and_preference_show_in_the_next_menu(self):
        uid = self.add_move("Before")
        self.manager.open()
        self.assertEqual(self.entries_for("alpha.txt"), ["Before"])
        self.desktop.tervano("set", uid, "--title", "After")
        self.add_move("Added")
        wait_for("the new entries", lambda: self.next_menu_has("Tervano", "Added"))
        self.assertEqual(self.manager.open_menu().member("Tervano").titles(), ["After", "Added"])
        self.manager.close_menu()
        self.desktop.tervano("prefs", "set", "useSubmenu", "no")
        wait_for("the entry without wrapper", lambda: self.next_menu_has("Added"))

    def test_one_process_reads_the_list_once_for_all_its_windows_and_menus(self):
        trace = self.desktop.work / "trace"
        command = self.manager.command
        self.manager.command = lambda folder: [
            "strace", "--daemonize", "--follow-forks", "--seccomp-bpf", "--trace=openat",
            "--output", trace, *command(folder)]
        self.add_move("Move away")
        self.manager.open()
        self.manager.command = command
        self.assertEqual(self.entries_for("alpha.txt"), ["Move away"])
        self.manager.open_background_menu()
        self.manager.close_menu()
        other = self.desktop.home / "other"
        other.mkdir()
        (other / "delta.txt").write_text("")
        self.manager.open_window(other)
        self.assertEqual(self.entries_for("delta.txt"), ["Move away"])
        # A window of its own, in a process of its own, is not traced.
        reads = [line for line in trace.read_text().splitlines() if "/Actions.plist\"" in line]
        self.assertEqual(len(reads), 1, reads)

    def next_menu_has(self, *titles):
        """Whether the next menu of what is selected has that entry."""
        menu = self.manager.open_menu()
        for title in titles:
            menu = menu and menu.member(title)
        self.manager.close_menu()
        return menu is not None


def tree_of(entry):
    """The titles below an entry; a submenu is a pair."""
    return [member.title if member.entries is None else (member.title, tree_of(member))
            for member in entry.entries]


if __name__ == "__main__":
    main()
