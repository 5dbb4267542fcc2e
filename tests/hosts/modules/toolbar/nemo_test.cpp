#include <map>

#include "tests/hosts/modules/toolbar/toolbar_fixture.h"

// What the file manager's library asks the file manager for.
extern "C" NemoFileInfo* (*nemo_file_info_getter)(GFile* location, gboolean create);

namespace tervano::test {

namespace {

// The files that the file manager has in memory, by their paths.
std::map<std::string, GObjectPtr<GObject>> knownFiles;

NemoFileInfo* knownFile(GFile* location, gboolean create) {
  EXPECT_FALSE(create);
  const GCharPtr path(g_file_get_path(location));
  const auto found = knownFiles.find(path.get());
  return found == knownFiles.end()
             ? nullptr
             : reinterpret_cast<NemoFileInfo*>(g_object_ref(found->second.get()));
}

}  // namespace

// A window with a view of the kind that the file manager has.
class NemoToolbarTest : public ToolbarModuleTest {
 protected:
  void SetUp() override {
    ToolbarModuleTest::SetUp();
    g_type_register_static_simple(GTK_TYPE_SCROLLED_WINDOW, "NemoView",
                                  sizeof(GtkScrolledWindowClass), nullptr,
                                  sizeof(GtkScrolledWindow), nullptr, static_cast<GTypeFlags>(0));
    nemo_file_info_getter = knownFile;
    slot_ = addSlot();
    view_ = static_cast<GtkWidget*>(g_object_new(g_type_from_name("NemoView"), nullptr));
    gtk_container_add(GTK_CONTAINER(slot_), view_);
    button_ = addButton(slot_);
  }
  void TearDown() override {
    ToolbarModuleTest::TearDown();
    knownFiles.clear();
  }

  // A list of these files, all selected.
  void selectInList(const std::vector<GObject*>& files) const {
    GtkListStore* const model = gtk_list_store_new(1, typeOfFiles());
    for (GObject* file : files) {
      gtk_list_store_insert_with_values(model, nullptr, -1, 0, file, -1);
      g_object_unref(file);
    }
    GtkWidget* const list = gtk_tree_view_new_with_model(GTK_TREE_MODEL(model));
    g_object_unref(model);
    GtkTreeSelection* const selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(list));
    gtk_tree_selection_set_mode(selection, GTK_SELECTION_MULTIPLE);
    gtk_tree_selection_select_all(selection);
    gtk_container_add(GTK_CONTAINER(view_), list);
  }
  // Icons that read so, all selected.
  void selectIcons(const std::vector<std::string>& names) const {
    GtkListStore* const model = gtk_list_store_new(1, G_TYPE_STRING);
    for (const auto& name : names) {
      gtk_list_store_insert_with_values(model, nullptr, -1, 0, name.c_str(), -1);
    }
    GtkWidget* const icons = gtk_icon_view_new_with_model(GTK_TREE_MODEL(model));
    g_object_unref(model);
    gtk_icon_view_set_selection_mode(GTK_ICON_VIEW(icons), GTK_SELECTION_MULTIPLE);
    gtk_icon_view_select_all(GTK_ICON_VIEW(icons));
    gtk_container_add(GTK_CONTAINER(view_), icons);
    AtkObject* const accessible = gtk_widget_get_accessible(icons);
    for (std::size_t i = 0; i < names.size(); ++i) {
      const GObjectPtr<AtkObject> icon(
          atk_object_ref_accessible_child(accessible, static_cast<int>(i)));
      atk_object_set_name(icon.get(), names[i].c_str());
    }
  }
  void know(const std::string& name) const {
    knownFiles[home_.path() + "/" + name].reset(newLocalFile(home_.path() + "/" + name));
  }

  GtkWidget* slot_ = nullptr;
  GtkWidget* view_ = nullptr;
  GtkWidget* button_ = nullptr;
};

TEST_F(NemoToolbarTest, TheButtonActsOnTheSelectedRowsOfAList) {
  selectInList({newLocalFile(home_.path() + "/b #1%.txt"), newLocalFile(home_.path() + "/a.txt"),
                newFile(g_file_new_for_uri("sftp://host/c.txt"), false)});
  // An earlier menu of something else.
  const Items earlier(request(files_));
  EXPECT_EQ(choose(button_), just({home_.path() + "/b #1%.txt", home_.path() + "/a.txt"}));
}

TEST_F(NemoToolbarTest, TheButtonActsOnTheSelectedIconsByTheirNames) {
  know("a b.txt");
  know("100%.txt");
  know("c.txt");
  selectIcons({"a b.txt", "100%.txt"});
  EXPECT_EQ(choose(button_), just({home_.path() + "/a b.txt", home_.path() + "/100%.txt"}));
}

TEST_F(NemoToolbarTest, AnIconOfWhichTheFileIsNotCertainHasNoAction) {
  know("a.txt");
  selectIcons({"a.txt", "unknown.txt"});
  EXPECT_EQ(choose(button_), just({"no action"}));
}

TEST_F(NemoToolbarTest, IconsThatReadAlikeHaveNoAction) {
  know("a.txt");
  selectIcons({"a.txt", "a.txt"});
  EXPECT_EQ(choose(button_), just({"no action"}));
}

TEST_F(NemoToolbarTest, AnIconThatReadsLikeAPathHasNoAction) {
  know("folder/a.txt");
  selectIcons({"folder/a.txt"});
  EXPECT_EQ(choose(button_), just({"no action"}));
}

TEST_F(NemoToolbarTest, AFileThatIsShownByAnotherNameIsNotTheIcon) {
  knownFiles[home_.path() + "/a.txt"].reset(newLocalFile(home_.path() + "/shown.txt"));
  selectIcons({"a.txt"});
  EXPECT_EQ(choose(button_), just({"no action"}));
}

TEST_F(NemoToolbarTest, AClickOnASelectionThatRunsOutOfMemoryOpensNothing) {
  selectInList({newLocalFile(home_.path() + "/a.txt"), newLocalFile(home_.path() + "/b.txt")});
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 10'000);
    {
      const FailingMemory failing(allocation);
      gtk_button_clicked(GTK_BUTTON(button_));
      hasFailed = FailingMemory::hasFailed();
    }
    // The folder instead would be more than was selected.
    EXPECT_EQ(menu() == nullptr, hasFailed) << allocation;
  }
  gtk_menu_shell_cancel(GTK_MENU_SHELL(menu()));
}

}  // namespace tervano::test
