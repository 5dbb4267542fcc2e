#include "hosts/common/host_menu.h"

#include <gtest/gtest.h>

#include "actions/register_action_classes.h"
#include "tests/hosts/common/fake_host.h"
#include "tests/hosts/elsewhere/elsewhere_file.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

const char* dataOf(GObject* object, const char* key) {
  const auto* const text = static_cast<const char*>(g_object_get_data(object, key));
  return text == nullptr ? "" : text;
}

GObject* submenuOf(GObject* item) {
  return static_cast<GObject*>(g_object_get_data(item, "menu"));
}

// Labels, "-" before disabled ones, members in brackets.
std::string labelsOf(const std::vector<GObjectPtr<GObject>>& items) {
  std::string labels;
  for (const auto& item : items) {
    if (!labels.empty()) labels += ',';
    if (g_object_get_data(item.get(), "disabled") != nullptr) labels += '-';
    labels += dataOf(item.get(), "label");
    if (GObject* const submenu = submenuOf(item.get())) {
      labels += '[' + labelsOf(membersOfFake(submenu)) + ']';
    }
  }
  return labels;
}

SelectedItemsPtr selectionOf(const std::string& path) {
  return std::make_shared<const SelectedItems>(
      SelectedItems{{Url::fileURLWithPath(path, false), false}});
}

MenuItem item(const std::string& title, const std::string& path = "/a.txt") {
  MenuItem made;
  made.title = title;
  made.action = "tv_0123456789ABCDEF0123456789ABCDEF";
  made.selection = selectionOf(path);
  return made;
}

MenuItem group(const std::string& title, std::vector<MenuItem> members) {
  MenuItem made;
  made.title = title;
  made.submenu = std::make_shared<const Menu>(Menu{"", std::move(members)});
  return made;
}

}  // namespace

class HostMenuTest : public testing::Test {
 protected:
  HostMenuTest() : platform_(&registry_), workspace_(*platform_.services().workspace) {
    registerActionClasses(registry_);
    platform_.services().workspace = &workspace_;
    extension_ = std::make_unique<HostExtension>(HostExtension::Icons::files);
  }
  void TearDown() override {
    extension_ = nullptr;
    runPendingMainItems();
  }

  template <typename Host = FakeHost>
  std::vector<GObjectPtr<GObject>> itemsOf(std::vector<MenuItem> items) const {
    GList* const list =
        HostMenuBuilder<Host>(*extension_, "items").itemsOf(Menu{"", std::move(items)});
    std::vector<GObjectPtr<GObject>> made;
    for (GList* one = list; one != nullptr; one = one->next) {
      made.emplace_back(static_cast<GObject*>(one->data));
    }
    g_list_free(list);
    return made;
  }
  // The living ones of an item and everything below it, once its only reference is dropped.
  template <typename Host>
  int livingAfter(std::vector<MenuItem> items) const {
    int living = 0;
    for (const auto& item : itemsOf<Host>(std::move(items))) count(item.get(), living);
    return living;
  }
  static void count(GObject* object, int& living) {
    ++living;
    g_object_weak_ref(
        object, [](gpointer data, GObject*) { --*static_cast<int*>(data); }, &living);
    if (GObject* const submenu = submenuOf(object)) {
      for (const auto& member : membersOfFake(submenu)) count(member.get(), living);
    }
  }

  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingWorkspace workspace_;
  std::unique_ptr<HostExtension> extension_;
};

TEST_F(HostMenuTest, ItemsStandInOrderWithSubmenusAndDisabledOnes) {
  MenuItem disabled = item("Disabled");
  disabled.enabled = false;
  EXPECT_EQ(
      labelsOf(itemsOf(
          {item("One"), group("Group", {item("Two"), group("Inner", {item("Three")})}), disabled})),
      "One,Group[Two,Inner[Three]],-Disabled");
}

TEST_F(HostMenuTest, EmptyGroupsAreAbsentAtAnyDepth) {
  EXPECT_EQ(
      labelsOf(itemsOf({group("Empty", {}), group("Group", {group("Inner", {}), item("One")})})),
      "Group[One]");
  EXPECT_TRUE(itemsOf({}).empty());
}

TEST_F(HostMenuTest, NamesAreDistinctAndTellTheActionAndTheKindOfTheMenu) {
  const auto items = itemsOf({item("One"), item("One")});
  EXPECT_STREQ(dataOf(items.at(0).get(), "name"),
               "Tervano::items::1::tv_0123456789ABCDEF0123456789ABCDEF");
  EXPECT_STREQ(dataOf(items.at(1).get(), "name"),
               "Tervano::items::2::tv_0123456789ABCDEF0123456789ABCDEF");
}

TEST_F(HostMenuTest, GroupsOfOneTitleAreKeptApartWhereTheFileManagerMixesThem) {
  const std::vector<MenuItem> groups = {group("Group", {item("One")}),
                                        group("Group", {item("Two")})};
  EXPECT_EQ(labelsOf(itemsOf(groups)), "Group[One],Group[Two]");
  const auto items = itemsOf<ForgetfulHost>(groups);
  const std::string first = dataOf(items.at(0).get(), "label");
  const std::string second = dataOf(items.at(1).get(), "label");
  EXPECT_NE(first, second);
  EXPECT_TRUE(first.starts_with("Group") && second.starts_with("Group"));
  // Nor with a group of another menu, and an item's label needs no mark.
  EXPECT_NE(dataOf(itemsOf<ForgetfulHost>(groups).at(0).get(), "label"), first);
  EXPECT_EQ(labelsOf(itemsOf<ForgetfulHost>({item("One")})), "One");
}

TEST_F(HostMenuTest, AnItemHasTheFileOfItsIcon) {
  MenuItem drawn = item("One");
  drawn.image = Image::imageNamed("icon-move");
  const auto items = itemsOf({drawn, item("Two")});
  EXPECT_TRUE(std::string(dataOf(items.at(0).get(), "icon")).ends_with("/icon-move.svg"));
  EXPECT_STREQ(dataOf(items.at(1).get(), "icon"), "");
}

TEST_F(HostMenuTest, AChosenItemIsHandedOver) {
  const auto first = itemsOf({item("One", "/first.txt")});
  const auto second = itemsOf({item("One", "/second.txt")});
  g_signal_emit_by_name(first.at(0).get(), "activate");
  g_signal_emit_by_name(second.at(0).get(), "activate");
  EXPECT_EQ(workspace_.opened().size(), 2u);
}

TEST_F(HostMenuTest, ChoosingADisabledItemOrAGroupDoesNothing) {
  // Some file managers draw a disabled item as if it could be chosen.
  MenuItem disabled = item("Disabled");
  disabled.enabled = false;
  const auto items = itemsOf({disabled, group("Group", {item("One")})});
  for (const auto& one : items) g_signal_emit_by_name(one.get(), "activate");
  EXPECT_TRUE(workspace_.opened().empty());
}

TEST_F(HostMenuTest, ItemsOfSubmenusEndWithTheMenuWhateverTheLibraryForgets) {
  const std::vector<MenuItem> menu = {group("Group", {item("One"), group("Inner", {item("Two")})})};
  EXPECT_FALSE(keepsMembersForEver<FakeHost>());
  EXPECT_TRUE(keepsMembersForEver<ForgetfulHost>());
  EXPECT_EQ(livingAfter<FakeHost>(menu), 0);
  EXPECT_EQ(livingAfter<ForgetfulHost>(menu), 0);
}

TEST_F(HostMenuTest, AnItemLetsGoOfItsSelection) {
  MenuItem one = item("One");
  const std::weak_ptr<const SelectedItems> selection = one.selection;
  auto items = itemsOf({std::move(one)});
  EXPECT_FALSE(selection.expired());
  items.clear();
  EXPECT_TRUE(selection.expired());
}

class SelectedItemTest : public testing::Test {
 protected:
  static SelectedItem itemOf(GFile* location, bool isDirectory = false,
                             const char* targetURI = nullptr) {
    const GObjectPtr<GObject> file(newFakeFile(location, isDirectory, targetURI));
    return selectedItemOf<FakeHost>(file.get());
  }
};

TEST_F(SelectedItemTest, ALocalFileHasItsPathWhateverItsBytes) {
  for (const std::string path : {"/a b/#1%.txt", "/new\nline", "/bad \xff\xfe", "/"}) {
    EXPECT_EQ(itemOf(g_file_new_for_path(path.c_str())).url.path(), path);
  }
  EXPECT_EQ(itemOf(g_file_new_for_path("/a")).isDirectory, false);
  EXPECT_EQ(itemOf(g_file_new_for_path("/a"), true).isDirectory, true);
}

TEST_F(SelectedItemTest, WhatIsElsewhereKeepsItsOwnURLAndHasNoPath) {
  const SelectedItem item = itemOf(g_file_new_for_uri("sftp://host/a.txt"));
  EXPECT_EQ(item.url.absoluteString(), "sftp://host/a.txt");
  EXPECT_EQ(item.url.path(), "");
  EXPECT_EQ(itemOf(nullptr).url.path(), "");
}

TEST_F(SelectedItemTest, WhatIsElsewhereIsUsedByThePathThatItHasHere) {
  EXPECT_EQ(itemOf(newElsewhereFile("sftp://host/a.txt", "/run/mounted/a.txt")).url.path(),
            "/run/mounted/a.txt");
  EXPECT_EQ(pathQuestions(), 1);
}

TEST_F(SelectedItemTest, TheTrashAndListsOfFilesAreNotAskedForPaths) {
  for (const char* uri : {"trash:///a.txt", "recent:///a.txt", "favorites:///a.txt"}) {
    EXPECT_EQ(itemOf(newElsewhereFile(uri, "/run/mounted/a.txt")).url.path(), "");
  }
  EXPECT_EQ(
      itemOf(newElsewhereFile("recent:///1", "/a.txt"), false, "sftp://host/a.txt").url.path(), "");
  EXPECT_EQ(pathQuestions(), 0);
}

TEST_F(SelectedItemTest, OnlyAURLOfThisMachineHasAPath) {
  for (const char* uri : {"file:///a%20b.txt", "file://localhost/a%20b.txt", "file:/a%20b.txt"}) {
    EXPECT_STREQ(localPathOfURI(uri).get(), "/a b.txt") << uri;
  }
  EXPECT_STREQ(localPathOfURI("file:///a%FF").get(), "/a\xff");
  for (const char* uri : {"file://host/a.txt", "sftp:///a.txt", "/a.txt", "a.txt", "file:a.txt", "",
                          "file:///a%00b", "file:///a%zz"}) {
    EXPECT_EQ(localPathOfURI(uri), nullptr) << uri;
  }
  EXPECT_EQ(localPathOfURI(nullptr), nullptr);
}

TEST_F(SelectedItemTest, AnEntryOfAListOfFilesIsWhatItStandsFor) {
  for (const char* list : {"recent:///1", "favorites:///1"}) {
    EXPECT_EQ(itemOf(g_file_new_for_uri(list), false, "file://host/a.txt").url.path(), "");
    EXPECT_EQ(itemOf(g_file_new_for_uri(list), false, "file:///a%20b.txt").url.path(), "/a b.txt");
    EXPECT_EQ(itemOf(g_file_new_for_uri(list), false, "trash:///a.txt").url.path(), "");
    EXPECT_EQ(itemOf(g_file_new_for_uri(list), false, "sftp://host/a.txt").url.path(), "");
    EXPECT_EQ(itemOf(g_file_new_for_uri(list)).url.path(), "");
  }
}

TEST_F(SelectedItemTest, AnItemOfTheTrashIsNotWhatItStandsFor) {
  EXPECT_EQ(
      itemOf(g_file_new_for_uri("trash:///a.txt"), false, "file:///trash/files/a.txt").url.path(),
      "");
}

}  // namespace tervano::test
