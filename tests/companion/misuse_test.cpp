#include <gtest/gtest.h>

#include <ostream>

#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

// Words that cannot be understood. "UID" stands for the uid of an action that is in the list.
struct Misuse {
  std::string name;
  std::vector<std::string> words;

  friend std::ostream& operator<<(std::ostream& out, const Misuse& misuse) {
    return out << misuse.name;
  }
};

constexpr char kUnknownUid[] = "00000000000000000000000000000000";

class MisuseTest : public testing::TestWithParam<Misuse> {};

std::string nameOf(const testing::TestParamInfo<Misuse>& info) {
  return info.param.name;
}

}  // namespace

TEST_P(MisuseTest, IsOneSentenceAndChangesNothing) {
  const ProgramHome home;
  const std::string uid = home.succeed({"add", "move", "--to", home.folder("to")});
  const std::string list = contentsOf(home.listFile());
  auto words = GetParam().words;
  for (auto& word : words) {
    if (word == "UID") word = uid;
  }
  expectUsageError(home.tervano(words));
  EXPECT_EQ(contentsOf(home.listFile()), list);
}

INSTANTIATE_TEST_SUITE_P(
    List, MisuseTest,
    testing::Values(Misuse{"ListWithAnUnknownOption", {"list", "--xml"}},
                    Misuse{"ListWithAValueForJson", {"list", "--json=yes"}},
                    Misuse{"ListWithAnExtraWord", {"list", "x"}},
                    Misuse{"ShowWithoutAUid", {"show"}},
                    Misuse{"ShowWithAnUnknownOption", {"show", "UID", "--xml"}},
                    Misuse{"ShowWithAnExtraWord", {"show", "UID", "UID"}},
                    Misuse{"ShowOfAMalformedUid", {"show", "123"}},
                    Misuse{"ShowOfALowerCaseUid", {"show", "abcdefabcdefabcdefabcdefabcdefab"}},
                    Misuse{"ShowOfAnEmptyUid", {"show", ""}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Edit, MisuseTest,
    testing::Values(
        Misuse{"AddWithoutAKind", {"add"}}, Misuse{"AddOfAnUnknownKind", {"add", "link"}},
        Misuse{"AddOfTwoKinds", {"add", "move", "copy"}},
        Misuse{"AddWithAnUnknownOption", {"add", "move", "--from", "/"}},
        Misuse{"AddWithoutTheValueOfTitle", {"add", "move", "--title"}},
        Misuse{"AddWithTwoTitles", {"add", "move", "--title", "a", "--title", "b"}},
        Misuse{"AddWithATitleThatIsNoText", {"add", "move", "--title", "\xff"}},
        Misuse{"AddWithADescriptionThatIsNoText", {"add", "move", "--description", "\xff"}},
        Misuse{"AddWithTypesThatAreNoText", {"add", "move", "--types", "\xff"}},
        Misuse{"AddWithNoTypes", {"add", "move", "--types", ""}},
        Misuse{"AddWithAnEmptyType", {"add", "move", "--types", "public.image,,public.text"}},
        Misuse{"AddWithATypeMissingAtTheEnd", {"add", "move", "--types", "public.image,"}},
        Misuse{"AddWithAMissingIcon", {"add", "move", "--icon", "/no/such.png"}},
        Misuse{"AddWithAnIconThatIsNoPicture", {"add", "move", "--icon", "/etc/hostname"}},
        Misuse{"AddWithAFolderAsIcon", {"add", "move", "--icon", "/"}},
        Misuse{"AddToAFile", {"add", "move", "--to", "/etc/hostname"}},
        Misuse{"AddToAnEmptyFolderName", {"add", "move", "--to", ""}},
        Misuse{"AddOfAGroupWithAFolder", {"add", "group-move", "--to", "/"}},
        Misuse{"AddIntoAMalformedUid", {"add", "move", "--into", "123"}},
        Misuse{"SetWithoutAUid", {"set"}}, Misuse{"SetWithoutAnOption", {"set", "UID"}},
        Misuse{"SetOfAMalformedUid", {"set", "123", "--title", "x"}},
        Misuse{"SetWithAnUnknownOption", {"set", "UID", "--into", "UID"}},
        Misuse{"SetWithAnExtraWord", {"set", "UID", "x", "--title", "x"}},
        Misuse{"SetOfATitleThatIsNoText", {"set", "UID", "--title", "\xff"}},
        Misuse{"SetToAFile", {"set", "UID", "--to", "/etc/hostname"}},
        Misuse{"EnableWithoutAUid", {"enable"}}, Misuse{"EnableOfAMalformedUid", {"enable", "123"}},
        Misuse{"EnableWithAnOption", {"enable", "UID", "--json"}},
        Misuse{"EnableOfTwo", {"enable", "UID", "UID"}}, Misuse{"DisableWithoutAUid", {"disable"}},
        Misuse{"DisableOfAMalformedUid", {"disable", "123"}},
        Misuse{"DisableWithAnOption", {"disable", "UID", "--json"}},
        Misuse{"RemoveWithoutAUid", {"remove"}}, Misuse{"RemoveOfAMalformedUid", {"remove", "-"}},
        Misuse{"RemoveWithAnOption", {"remove", "UID", "--all"}},
        Misuse{"RemoveOfTwo", {"remove", "UID", "UID"}},
        Misuse{"ReorderWithoutAUid", {"reorder", "--first"}},
        Misuse{"ReorderWithoutAPlace", {"reorder", "UID"}},
        Misuse{"ReorderToTwoPlaces", {"reorder", "UID", "--first", "--last"}},
        Misuse{"ReorderOfAMalformedUid", {"reorder", "123", "--first"}},
        Misuse{"ReorderBesideAMalformedUid", {"reorder", "UID", "--before", "123"}},
        Misuse{"ReorderIntoAMalformedUid", {"reorder", "UID", "--into", "123"}},
        Misuse{"ReorderWithAnUnknownOption", {"reorder", "UID", "--behind", "UID"}},
        Misuse{"ReorderWithAnExtraWord", {"reorder", "UID", "UID", "--first"}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    MenuAndRun, MisuseTest,
    testing::Values(
        Misuse{"MenuOfAnUnknownKind", {"menu", "--kind", "desktop"}},
        Misuse{"MenuWithoutTheValueOfKind", {"menu", "--kind"}},
        Misuse{"MenuWithAnUnknownOption", {"menu", "--xml"}},
        Misuse{"MenuAsJsonAndAsText", {"menu", "--json", "--print"}},
        Misuse{"MenuOfAnEmptyPath", {"menu", "--json", ""}},
        Misuse{"ContainerMenuOfTwoFolders", {"menu", "--kind", "container", "/", "/tmp"}},
        Misuse{"SidebarMenuOfTwoFolders", {"menu", "--kind", "sidebar", "/", "/tmp"}},
        Misuse{"ChooseWithoutAUid", {"choose"}}, Misuse{"ChooseOfAMalformedUid", {"choose", "12"}},
        Misuse{"ChooseWithAnOption", {"choose", "UID", "--json"}},
        Misuse{"ChooseOfAnEmptyPath", {"choose", "UID", ""}}, Misuse{"RunWithoutAUid", {"run"}},
        Misuse{"RunOfAMalformedUid", {"run", "12"}},
        Misuse{"RunWithAnOption", {"run", "UID", "--wait"}},
        Misuse{"RunOnAnEmptyPath", {"run", "UID", ""}}, Misuse{"OpenWithoutAUrl", {"open"}},
        Misuse{"OpenOfTwoUrls", {"open", "tervano:a", "tervano:b"}},
        Misuse{"OpenWithAnOption", {"open", "--json", "tervano:a"}},
        Misuse{"ServiceWithAnUnknownOption", {"service", "--idle", "1"}},
        Misuse{"ServiceIdleForAWord", {"service", "--idle-seconds", "soon"}},
        Misuse{"ServiceIdleForANegativeNumber", {"service", "--idle-seconds", "-1"}},
        Misuse{"ServiceIdleForAVeryLargeNumber", {"service", "--idle-seconds", "1234567"}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Others, MisuseTest,
    testing::Values(Misuse{"PrefsWithAnUnknownWord", {"prefs", "show"}},
                    Misuse{"PrefsWithAnUnknownOption", {"prefs", "--xml"}},
                    Misuse{"PrefsGetWithoutAName", {"prefs", "get"}},
                    Misuse{"PrefsGetOfAnUnknownName", {"prefs", "get", "useSubMenu"}},
                    Misuse{"PrefsGetOfTwo", {"prefs", "get", "useSubmenu", "useSubmenu"}},
                    Misuse{"PrefsGetAsJson", {"prefs", "get", "useSubmenu", "--json"}},
                    Misuse{"PrefsSetWithoutAValue", {"prefs", "set", "useSubmenu"}},
                    Misuse{"PrefsSetOfAnUnknownName", {"prefs", "set", "sharedInstance", "yes"}},
                    Misuse{"PrefsSetToANumber", {"prefs", "set", "useSubmenu", "1"}},
                    Misuse{"PrefsSetToUpperCase", {"prefs", "set", "useSubmenu", "YES"}},
                    Misuse{"PrefsSetWithAnExtraWord", {"prefs", "set", "useSubmenu", "yes", "no"}},
                    Misuse{"WatchWithAnOption", {"watch", "--json"}},
                    Misuse{"PostWithoutAName", {"post"}}, Misuse{"PostOfAnEmptyName", {"post", ""}},
                    Misuse{"PostOfTwoNames", {"post", "a", "b"}},
                    Misuse{"PostWithAnOption", {"post", "--all"}},
                    Misuse{"ArchiveWithoutAWord", {"archive"}},
                    Misuse{"ArchiveWithAnUnknownWord", {"archive", "load", "/etc/hostname"}},
                    Misuse{"ArchiveDumpWithoutAFile", {"archive", "dump"}},
                    Misuse{"ArchiveDumpOfTwoFiles", {"archive", "dump", "/a", "/b"}},
                    Misuse{"ArchiveDumpOfAnEmptyName", {"archive", "dump", ""}},
                    Misuse{"ArchiveDumpWithAnUnknownOption", {"archive", "dump", "/a", "--xml"}}),
    nameOf);

namespace {

class UnknownUidTest : public testing::TestWithParam<Misuse> {};

}  // namespace

TEST_P(UnknownUidTest, IsOneSentenceAndChangesNothing) {
  const ProgramHome home;
  const std::string uid = home.succeed({"add", "move", "--to", home.folder("to")});
  const std::string list = contentsOf(home.listFile());
  auto words = GetParam().words;
  for (auto& word : words) {
    if (word == "UID") word = uid;
  }
  expectFailure(home.tervano(words));
  EXPECT_EQ(contentsOf(home.listFile()), list);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, UnknownUidTest,
    testing::Values(Misuse{"Show", {"show", kUnknownUid}},
                    Misuse{"Set", {"set", kUnknownUid, "--title", "x"}},
                    Misuse{"Enable", {"enable", kUnknownUid}},
                    Misuse{"Disable", {"disable", kUnknownUid}},
                    Misuse{"Remove", {"remove", kUnknownUid}},
                    Misuse{"Reorder", {"reorder", kUnknownUid, "--first"}},
                    Misuse{"ReorderBefore", {"reorder", "UID", "--before", kUnknownUid}},
                    Misuse{"ReorderAfter", {"reorder", "UID", "--after", kUnknownUid}},
                    Misuse{"ReorderInto", {"reorder", "UID", "--into", kUnknownUid}},
                    Misuse{"AddInto", {"add", "move", "--into", kUnknownUid}},
                    Misuse{"Run", {"run", kUnknownUid}}),
    nameOf);

}  // namespace tervano::test
