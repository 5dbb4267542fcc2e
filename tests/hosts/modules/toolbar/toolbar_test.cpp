// What the toolbar buttons of all modules that have one share.

#include "tests/hosts/modules/toolbar/toolbar_fixture.h"

namespace tervano::test {

TEST_F(ToolbarModuleTest, WithoutASelectionTheButtonActsOnTheFolder) {
  EXPECT_EQ(choose(addButton(addSlot())), just({home_.path()}));
}

TEST_F(ToolbarModuleTest, AButtonOfAFolderElsewhereHasNoAction) {
  for (const char* uri : {"trash:///", "sftp://host/folder", "", "not a URL"}) {
    GtkWidget* const button = Manager::toolbarButton(provider_.get(), uri, window_);
    GtkWidget* const slot = addSlot();
    gtk_container_add(GTK_CONTAINER(slot), button);
    gtk_widget_show_all(window_);
    EXPECT_EQ(choose(button), just({"no action"})) << uri;
    gtk_widget_destroy(slot);
  }
}

TEST_F(ToolbarModuleTest, AButtonThatRunsOutOfMemoryThrowsNothing) {
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 1'000);
    GtkWidget* button = nullptr;
    const std::string uri = folderURI();
    {
      const FailingMemory failing(allocation);
      button = Manager::toolbarButton(provider_.get(), uri.c_str(), window_);
      hasFailed = FailingMemory::hasFailed();
    }
    EXPECT_EQ(button == nullptr, hasFailed) << allocation;
    if (button != nullptr) gtk_widget_destroy(button);
  }
  EXPECT_GT(allocation, 3);
}

TEST_F(ToolbarModuleTest, AClickThatRunsOutOfMemoryOpensNothing) {
  GtkWidget* const button = addButton(addSlot());
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 10'000);
    {
      const FailingMemory failing(allocation);
      gtk_button_clicked(GTK_BUTTON(button));
      hasFailed = FailingMemory::hasFailed();
    }
    EXPECT_EQ(menu() == nullptr, hasFailed) << allocation;
  }
  EXPECT_GT(allocation, 5);
  gtk_menu_shell_cancel(GTK_MENU_SHELL(menu()));
}

}  // namespace tervano::test
