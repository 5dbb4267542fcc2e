#include "tests/hosts/modules/toolbar/toolbar_fixture.h"

namespace tervano::test {

// Tells the module of its window whenever menus are due anew, as the file manager does.
class CajaToolbarTest : public ToolbarModuleTest {
 protected:
  void SetUp() override {
    ToolbarModuleTest::SetUp();
    folder_.reset(newLocalFile(home_.path(), true));
    toldWindow_ = window_;
    g_signal_connect(provider_.get(), "items-updated", G_CALLBACK(itemsUpdated), this);
  }
  void TearDown() override {
    g_signal_handlers_disconnect_by_data(provider_.get(), this);
    ToolbarModuleTest::TearDown();
  }
  static void itemsUpdated(GObject* provider, CajaToolbarTest* test) {
    ++test->questions_;
    auto* const folder = reinterpret_cast<Manager::FileInfo*>(test->folder_.get());
    const Items background(Manager::folderItems(provider, folder, test->toldWindow_));
    const Items items(Manager::fileItems(provider, test->selection_->list(), test->toldWindow_));
  }
  void select(const std::vector<std::string>& names) {
    selection_ = std::make_unique<Files>();
    for (const auto& name : names) selection_->add(newLocalFile(home_.path() + "/" + name));
  }
  GObject* newToolbarItem() const {
    GList* const items = Manager::toolbarItems(
        provider_.get(), reinterpret_cast<Manager::FileInfo*>(folder_.get()), window_);
    if (items == nullptr) return nullptr;
    auto* const item = static_cast<GObject*>(items->data);
    g_list_free(items);
    return item;
  }

  GObjectPtr<GObject> folder_;
  GtkWidget* toldWindow_ = nullptr;
  std::unique_ptr<Files> selection_ = std::make_unique<Files>();
  int questions_ = 0;
};

TEST_F(CajaToolbarTest, TheButtonActsOnWhatIsSelectedAtTheClick) {
  GtkWidget* const button = addButton(addSlot());
  select({"a.txt"});
  // Menus are asked for at any time.
  itemsUpdated(provider_.get(), this);
  select({"b.txt", "c.txt"});
  EXPECT_EQ(choose(button), just({home_.path() + "/b.txt", home_.path() + "/c.txt"}));
  EXPECT_EQ(questions_, 2);
  select({});
  EXPECT_EQ(choose(button), just({home_.path()}));
}

TEST_F(CajaToolbarTest, WhatIsSelectedInAnotherFolderOrWindowIsLeftAlone) {
  GtkWidget* const button = addButton(addSlot());
  select({"a.txt"});
  folder_.reset(newLocalFile(home_.folder("other"), true));
  EXPECT_EQ(choose(button), just({home_.path()}));
  folder_.reset(newLocalFile(home_.path(), true));
  GtkWidget* const other = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  for (GtkWidget* window : {other, static_cast<GtkWidget*>(nullptr)}) {
    toldWindow_ = window;
    EXPECT_EQ(choose(button), just({home_.path()}));
  }
  gtk_widget_destroy(other);
}

TEST_F(CajaToolbarTest, OfTwoViewsOfOneFolderNoneTakesTheSelection) {
  GtkWidget* const first = addButton(addSlot());
  GtkWidget* const second = addButton(addSlot());
  EXPECT_EQ(choose(first), just({home_.path()}));
  select({"a.txt"});
  EXPECT_EQ(choose(first), just({"no action"}));
  EXPECT_EQ(choose(second), just({"no action"}));
}

TEST_F(CajaToolbarTest, WhatIsSelectedElsewhereIsLeftAlone) {
  GtkWidget* const button = addButton(addSlot());
  selection_->add(newFile(g_file_new_for_uri("sftp://host/a.txt"), false));
  EXPECT_EQ(choose(button), just({"no action"}));
}

TEST_F(CajaToolbarTest, AClickOnASelectionThatRunsOutOfMemoryOpensNothing) {
  select({"a.txt", "b.txt"});
  GtkWidget* const button = addButton(addSlot());
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 10'000);
    {
      const FailingMemory failing(allocation);
      gtk_button_clicked(GTK_BUTTON(button));
      hasFailed = FailingMemory::hasFailed();
    }
    // The folder instead would be more than was selected.
    EXPECT_EQ(menu() == nullptr, hasFailed) << allocation;
  }
  gtk_menu_shell_cancel(GTK_MENU_SHELL(menu()));
}

TEST_F(CajaToolbarTest, TheItemHasItsNameItsToolTipAndItsImage) {
  const GObjectPtr<GObject> item(newToolbarItem());
  ASSERT_NE(item, nullptr);
  const std::map<std::string, std::string> texts = {{"label", "Tervano"},
                                                    {"tip", "Click the toolbar item for a menu."}};
  for (const auto& [property, text] : texts) {
    char* found = nullptr;
    g_object_get(item.get(), property.c_str(), &found, nullptr);
    EXPECT_STREQ(GCharPtr(found).get(), text.c_str());
  }
  char* icon = nullptr;
  g_object_get(item.get(), "icon", &icon, nullptr);
  const GCharPtr owned(icon);
  EXPECT_TRUE(std::string(icon).ends_with("/icon-tervano.svg")) << icon;
  EXPECT_TRUE(exists(icon));
}

TEST_F(CajaToolbarTest, TheItemActsOnWhatIsSelected) {
  const GObjectPtr<GObject> item(newToolbarItem());
  select({"a.txt"});
  gtk_widget_show_all(window_);
  g_signal_emit_by_name(item.get(), "activate");
  ASSERT_NE(menu(), nullptr);
  GList* const entries = gtk_container_get_children(GTK_CONTAINER(menu()));
  gtk_menu_shell_activate_item(GTK_MENU_SHELL(menu()), static_cast<GtkWidget*>(entries->data),
                               TRUE);
  g_list_free(entries);
  EXPECT_EQ(handedOver(), just({home_.path() + "/a.txt"}));
}

TEST_F(CajaToolbarTest, ThereIsNoItemWhileNoneIsWantedAndOfNoFolder) {
  home_.succeed({"prefs", "set", "showIconInToolbar", "no"});
  EXPECT_TRUE(waitUntil([&] { return GObjectPtr<GObject>(newToolbarItem()) == nullptr; }));
  home_.succeed({"prefs", "set", "showIconInToolbar", "yes"});
  EXPECT_TRUE(waitUntil([&] { return GObjectPtr<GObject>(newToolbarItem()) != nullptr; }));
  folder_.reset();
  EXPECT_EQ(newToolbarItem(), nullptr);
}

TEST_F(CajaToolbarTest, AnItemThatRunsOutOfMemoryThrowsNothing) {
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 1'000);
    GObjectPtr<GObject> item;
    {
      const FailingMemory failing(allocation);
      item.reset(newToolbarItem());
      hasFailed = FailingMemory::hasFailed();
    }
    EXPECT_EQ(item == nullptr, hasFailed) << allocation;
  }
  EXPECT_GT(allocation, 3);
}

}  // namespace tervano::test
