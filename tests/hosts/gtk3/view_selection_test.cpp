#include "hosts/gtk3/view_selection.h"

#include <gtest/gtest.h>

#include "tests/support/virtual_display.h"

namespace tervano::test {

namespace {

constexpr char kViewType[] = "TervanoTestView";

// A window with one view of a folder for each half, as a file manager arranges them: a strip with a
// button, below it the view.
struct Half {
  GtkWidget* slot = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  GtkWidget* button = gtk_button_new();
  GtkWidget* view = nullptr;

  explicit Half(GtkWidget* window) {
    GtkWidget* const strip = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_container_add(GTK_CONTAINER(strip), button);
    gtk_container_add(GTK_CONTAINER(slot), strip);
    addView();
    gtk_container_add(GTK_CONTAINER(window), slot);
  }
  void addView() {
    view = static_cast<GtkWidget*>(g_object_new(g_type_from_name(kViewType), nullptr));
    GtkWidget* const overlay = gtk_overlay_new();
    gtk_container_add(GTK_CONTAINER(overlay), view);
    gtk_container_add(GTK_CONTAINER(slot), overlay);
  }
};

std::string namesOf(const ViewSelection& selection) {
  std::string names;
  for (const auto& file : selection.files) {
    names += std::string(static_cast<const char*>(g_object_get_data(file.get(), "name"))) + ";";
  }
  for (const auto& name : selection.names) names += "\"" + name + "\";";
  return names;
}

}  // namespace

class ViewSelectionTest : public testing::Test {
 protected:
  ViewSelectionTest() {
    gtk_init(nullptr, nullptr);
    g_type_register_static_simple(GTK_TYPE_SCROLLED_WINDOW, kViewType,
                                  sizeof(GtkScrolledWindowClass), nullptr,
                                  sizeof(GtkScrolledWindow), nullptr, static_cast<GTypeFlags>(0));
    fileType_ = g_type_register_static_simple(G_TYPE_OBJECT, "TervanoTestShownFile",
                                              sizeof(GObjectClass), nullptr, sizeof(GObject),
                                              nullptr, static_cast<GTypeFlags>(0));
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    halves_ = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_container_add(GTK_CONTAINER(window_), halves_);
    first_ = std::make_unique<Half>(halves_);
  }
  ~ViewSelectionTest() override { gtk_widget_destroy(window_); }

  // A list whose rows are these files; an empty name is a row without one.
  GtkTreeView* addList(const Half& half, const std::vector<std::string>& names) const {
    GtkListStore* const model = gtk_list_store_new(2, fileType_, G_TYPE_STRING);
    for (const auto& name : names) {
      GObjectPtr<GObject> file;
      if (!name.empty()) {
        file.reset(static_cast<GObject*>(g_object_new(fileType_, nullptr)));
        g_object_set_data_full(file.get(), "name", g_strdup(name.c_str()), g_free);
      }
      gtk_list_store_insert_with_values(model, nullptr, -1, 0, file.get(), -1);
    }
    GtkWidget* const list = gtk_tree_view_new_with_model(GTK_TREE_MODEL(model));
    g_object_unref(model);
    gtk_tree_selection_set_mode(gtk_tree_view_get_selection(GTK_TREE_VIEW(list)),
                                GTK_SELECTION_MULTIPLE);
    gtk_container_add(GTK_CONTAINER(half.view), list);
    return GTK_TREE_VIEW(list);
  }
  static void selectRows(GtkTreeView* list, const std::vector<int>& rows) {
    for (const int row : rows) {
      GtkTreePath* const path = gtk_tree_path_new_from_indices(row, -1);
      gtk_tree_selection_select_path(gtk_tree_view_get_selection(list), path);
      gtk_tree_path_free(path);
    }
  }
  static GtkIconView* addIcons(const Half& half, const std::vector<std::string>& names) {
    GtkListStore* const model = gtk_list_store_new(1, G_TYPE_STRING);
    for (const auto& name : names) {
      gtk_list_store_insert_with_values(model, nullptr, -1, 0, name.c_str(), -1);
    }
    GtkWidget* const icons = gtk_icon_view_new_with_model(GTK_TREE_MODEL(model));
    g_object_unref(model);
    gtk_icon_view_set_text_column(GTK_ICON_VIEW(icons), 0);
    gtk_icon_view_set_selection_mode(GTK_ICON_VIEW(icons), GTK_SELECTION_MULTIPLE);
    gtk_container_add(GTK_CONTAINER(half.view), icons);
    // As screen readers are told them, which this toolkit's own icons leave out.
    AtkObject* const accessible = gtk_widget_get_accessible(icons);
    for (std::size_t i = 0; i < names.size(); ++i) {
      const GObjectPtr<AtkObject> icon(
          atk_object_ref_accessible_child(accessible, static_cast<int>(i)));
      atk_object_set_name(icon.get(), names[i].c_str());
    }
    return GTK_ICON_VIEW(icons);
  }
  static void selectIcons(GtkIconView* icons, const std::vector<int>& numbers) {
    for (const int number : numbers) {
      GtkTreePath* const path = gtk_tree_path_new_from_indices(number, -1);
      gtk_icon_view_select_path(icons, path);
      gtk_tree_path_free(path);
    }
  }
  std::string selectedBeside(GtkWidget* widget) const {
    const auto selection = selectionBeside(widget, {kViewType, fileType_});
    return selection ? namesOf(*selection) : "not known";
  }

  VirtualDisplay display_;
  GType fileType_ = 0;
  GtkWidget* window_ = nullptr;
  GtkWidget* halves_ = nullptr;
  std::unique_ptr<Half> first_;
};

TEST_F(ViewSelectionTest, AListTellsItsSelectedFilesInTheirOrder) {
  GtkTreeView* const list = addList(*first_, {"a", "b", "", "c"});
  EXPECT_EQ(selectedBeside(first_->button), "");
  selectRows(list, {3, 0});
  EXPECT_EQ(selectedBeside(first_->button), "a;c;");
  // A row without a file.
  selectRows(list, {2});
  EXPECT_EQ(selectedBeside(first_->button), "a;c;");
}

TEST_F(ViewSelectionTest, FilesLiveOnlyAsLongAsTheyAreHeld) {
  GtkTreeView* const list = addList(*first_, {"a"});
  selectRows(list, {0});
  auto selection = selectionBeside(first_->button, {kViewType, fileType_});
  GObject* file = selection->files.at(0).get();
  g_object_add_weak_pointer(file, reinterpret_cast<gpointer*>(&file));
  gtk_tree_view_set_model(list, nullptr);
  EXPECT_NE(file, nullptr);
  selection.reset();
  EXPECT_EQ(file, nullptr);
}

TEST_F(ViewSelectionTest, IconsTellTheirNamesUnlessSeveralReadAlike) {
  GtkIconView* const icons = addIcons(*first_, {"a", "b", "a", "c"});
  EXPECT_EQ(selectedBeside(first_->button), "");
  selectIcons(icons, {1, 3});
  EXPECT_EQ(selectedBeside(first_->button), "\"b\";\"c\";");
  selectIcons(icons, {0});
  EXPECT_EQ(selectedBeside(first_->button), "\"\";\"b\";\"c\";");
}

TEST_F(ViewSelectionTest, EachHalfOfTheWindowHasItsOwn) {
  const Half second(halves_);
  selectRows(addList(*first_, {"a", "b"}), {0});
  selectRows(addList(second, {"a", "c"}), {1});
  EXPECT_EQ(selectedBeside(first_->button), "a;");
  EXPECT_EQ(selectedBeside(second.button), "c;");
}

TEST_F(ViewSelectionTest, WithoutAViewOrWithSeveralNothingIsKnown) {
  selectRows(addList(*first_, {"a"}), {0});
  // While another folder is being loaded.
  first_->addView();
  EXPECT_EQ(selectedBeside(first_->button), "not known");
  gtk_widget_destroy(first_->view);
  EXPECT_EQ(selectedBeside(first_->button), "a;");
  EXPECT_FALSE(selectionBeside(first_->button, {"TervanoNoSuchView", fileType_}));
  GtkWidget* const alone = gtk_button_new();
  EXPECT_EQ(selectedBeside(alone), "not known");
  gtk_widget_destroy(alone);
}

TEST_F(ViewSelectionTest, AViewThatKeepsItsFilesInAnotherWayIsNotKnown) {
  EXPECT_EQ(selectedBeside(first_->button), "not known");
  GtkTreeView* const list = addList(*first_, {"a"});
  selectRows(list, {0});
  EXPECT_FALSE(selectionBeside(first_->button, {kViewType, GTK_TYPE_WIDGET}));
  gtk_tree_view_set_model(list, nullptr);
  EXPECT_EQ(selectedBeside(first_->button), "not known");
}

}  // namespace tervano::test
