#pragma once

#include <gtk/gtk.h>

#include "tests/hosts/modules/module_fixture.h"
#include "tests/support/virtual_display.h"

namespace tervano::test {

// A module in a file manager that shows a window with its toolbar button.
class ToolbarModuleTest : public ModuleTest {
 protected:
  ToolbarModuleTest() { gtk_init(nullptr, nullptr); }
  void SetUp() override {
    ModuleTest::SetUp();
    addMove("Away");
    ASSERT_EQ(textOnceItIs("Tervano@[Away@]"), "Tervano@[Away@]");
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window_), 400, 300);
    halves_ = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_container_add(GTK_CONTAINER(window_), halves_);
  }
  void TearDown() override { gtk_widget_destroy(window_); }

  std::string folderURI() const { return "file://" + home_.path(); }
  // Where the button of a folder and its view stand.
  GtkWidget* addSlot() const {
    GtkWidget* const slot = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(halves_), slot);
    return slot;
  }
  GtkWidget* addButton(GtkWidget* slot) const {
    GtkWidget* const button = Manager::toolbarButton(provider_.get(), folderURI().c_str(), window_);
    GtkWidget* const strip = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_container_add(GTK_CONTAINER(strip), button);
    gtk_container_add(GTK_CONTAINER(slot), strip);
    gtk_widget_show_all(window_);
    return button;
  }
  GtkWidget* menu() const {
    GList* const attached = gtk_menu_get_for_attach_widget(window_);
    return attached == nullptr ? nullptr : static_cast<GtkWidget*>(attached->data);
  }
  // Opens the menu and chooses its only entry; what was handed over since the last choice.
  std::set<std::vector<std::string>> choose(GtkWidget* button) const {
    for (const auto& file : std::filesystem::directory_iterator(home_.container())) {
      if (file.path().filename().string().size() == 36) std::filesystem::remove(file);
    }
    gtk_button_clicked(GTK_BUTTON(button));
    if (menu() == nullptr) return {{"no menu"}};
    GList* const entries = gtk_container_get_children(GTK_CONTAINER(menu()));
    auto* const entry = static_cast<GtkWidget*>(entries->data);
    g_list_free(entries);
    if (gtk_widget_get_sensitive(entry) == FALSE) {
      gtk_menu_shell_cancel(GTK_MENU_SHELL(menu()));
      return {{"no action"}};
    }
    gtk_menu_shell_activate_item(GTK_MENU_SHELL(menu()), entry, TRUE);
    return handedOver();
  }
  static std::set<std::vector<std::string>> just(std::vector<std::string> paths) {
    return {std::move(paths)};
  }

  VirtualDisplay display_;
  GtkWidget* window_ = nullptr;
  GtkWidget* halves_ = nullptr;
};

}  // namespace tervano::test
