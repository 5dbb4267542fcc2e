#include "hosts/gtk3/toolbar_item.h"

#include <gtest/gtest.h>

#include "actions/register_action_classes.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {

// A toolbar with an action, as a file manager makes one of an extension's item.
class ToolbarItemTest : public testing::Test {
 protected:
  ToolbarItemTest() : platform_(&registry_) {
    registerActionClasses(registry_);
    gtk_init(nullptr, nullptr);
    extension_ = std::make_unique<HostExtension>(HostExtension::Icons::none);
  }
  void TearDown() override {
    extension_ = nullptr;
    runPendingMainItems();
  }

  static GtkWidget* newTool(GtkWidget* toolbar, const char* name) {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GtkAction* const action = gtk_action_new(name, name, nullptr, nullptr);
    GtkWidget* const tool = gtk_action_create_tool_item(action);
    g_object_unref(action);
    G_GNUC_END_IGNORE_DEPRECATIONS
    gtk_toolbar_insert(GTK_TOOLBAR(toolbar), GTK_TOOL_ITEM(tool), -1);
    return tool;
  }
  struct Window {
    Window() {
      GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
      GtkWidget* const toolbar = gtk_toolbar_new();
      gtk_container_add(GTK_CONTAINER(window), box);
      gtk_container_add(GTK_CONTAINER(box), toolbar);
      other = newTool(toolbar, "Other::toolbar");
      gtk_toolbar_insert(GTK_TOOLBAR(toolbar), gtk_separator_tool_item_new(), -1);
      item = newTool(toolbar, "Item::toolbar");
    }
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* other = nullptr;
    GtkWidget* item = nullptr;
  };
  static bool isShown(GtkWidget* tool) { return gtk_widget_get_visible(tool) != FALSE; }
  static void want(bool isWanted) { TVUserDefaults::create()->setShowIconInToolbar(isWanted); }

  VirtualDisplay display_;
  ClassRegistry registry_;
  ScopedPlatform platform_;
  std::unique_ptr<HostExtension> extension_;
};

TEST_F(ToolbarItemTest, ItGoesAndComesInAllWindowsAsItIsWanted) {
  Window first;
  Window second;
  followToolbarItem(*extension_, first.window, "Item::toolbar");
  followToolbarItem(*extension_, second.window, "Item::toolbar");
  followToolbarItem(*extension_, second.window, "Item::toolbar");
  followToolbarItem(*extension_, nullptr, "Item::toolbar");
  for (const bool isWanted : {false, true, false}) {
    want(isWanted);
    EXPECT_TRUE(waitUntil([&] { return isShown(first.item) == isWanted; }));
    EXPECT_EQ(isShown(second.item), isWanted);
    EXPECT_TRUE(isShown(first.other));
    EXPECT_TRUE(isShown(second.other));
  }
  gtk_widget_destroy(first.window);
  want(true);
  EXPECT_TRUE(waitUntil([&] { return isShown(second.item); }));
  gtk_widget_destroy(second.window);
}

}  // namespace tervano::test
