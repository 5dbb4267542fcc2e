#include "hosts/gtk3/toolbar_button.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "actions/register_action_classes.h"
#include "model/tv_action_groups.h"
#include "platform/linux/glib_handles.h"
#include "store/tv_actions_manager.h"
#include "tests/hosts/gtk3/widget_count.h"
#include "tests/hosts/modules/failing_memory.h"
#include "tests/support/recording_services.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

constexpr char kFolderURI[] = "file:///folder";

// What the file manager of the test tells, and where it was asked.
std::optional<SelectedItems> told;
std::vector<ToolbarPlace> asked;

std::optional<SelectedItems> toldSelection(const ToolbarPlace& place) {
  asked.push_back(place);
  return told;
}

SelectedItem fileAt(const std::string& path) {
  return {Url::fileURLWithPath(path), false};
}

std::vector<GtkWidget*> childrenOf(GtkWidget* container) {
  GList* const list = gtk_container_get_children(GTK_CONTAINER(container));
  std::vector<GtkWidget*> children;
  for (GList* one = list; one != nullptr; one = one->next) {
    children.push_back(static_cast<GtkWidget*>(one->data));
  }
  g_list_free(list);
  return children;
}

// The file that an image shows; empty without one.
std::string fileOf(GtkWidget* image) {
  if (!GTK_IS_IMAGE(image)) return {};
  GIcon* icon = nullptr;
  gtk_image_get_gicon(GTK_IMAGE(image), &icon, nullptr);
  if (!G_IS_FILE_ICON(icon)) return {};
  return GCharPtr(g_file_get_path(g_file_icon_get_file(G_FILE_ICON(icon)))).get();
}

// What an entry reads like, "-" before a disabled one, "@" behind one whose picture is there, the
// members of its submenu in brackets.
std::string textOfMenu(GtkWidget* menu) {
  std::string text;
  for (GtkWidget* const entry : childrenOf(menu)) {
    if (!text.empty()) text += ',';
    if (gtk_widget_get_sensitive(entry) == FALSE) text += '-';
    std::string picture;
    for (GtkWidget* const part : childrenOf(gtk_bin_get_child(GTK_BIN(entry)))) {
      if (GTK_IS_LABEL(part)) text += gtk_label_get_text(GTK_LABEL(part));
      if (exists(fileOf(part))) picture = '@';
    }
    text += picture;
    GtkWidget* const submenu = gtk_menu_item_get_submenu(GTK_MENU_ITEM(entry));
    if (submenu != nullptr) text += '[' + textOfMenu(submenu) + ']';
  }
  return text;
}

GObject* newItem() {
  static const GType type = [] {
    const GType made = g_type_register_static_simple(G_TYPE_OBJECT, "TervanoTestToolbarItem",
                                                     sizeof(GObjectClass), nullptr, sizeof(GObject),
                                                     nullptr, static_cast<GTypeFlags>(0));
    g_signal_new("activate", made, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
    return made;
  }();
  return static_cast<GObject*>(g_object_new(type, nullptr));
}

}  // namespace

class ToolbarButtonTest : public testing::Test {
 protected:
  ToolbarButtonTest() : platform_(&registry_), workspace_(*platform_.services().workspace) {
    registerActionClasses(registry_);
    platform_.services().workspace = &workspace_;
    gtk_init(nullptr, nullptr);
    told.reset();
    asked.clear();
  }
  void SetUp() override { start(); }
  void TearDown() override {
    if (window_ != nullptr) gtk_widget_destroy(window_);
    extension_ = nullptr;
    EXPECT_TRUE(waitUntil([&] { return platform_.runLoop().activeQueueThreads() == 0; }));
    runPendingMainItems();
  }

  void start() {
    extension_ = std::make_unique<HostExtension>(HostExtension::Icons::files);
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(window_), 400, 300);
    strip_ = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(window_), strip_);
  }
  // The list as another process saves it, once the menu has it.
  void save(ActionList actions) {
    const auto manager = TVActionsManager::create();
    manager->setWorkingActionsArray(std::move(actions));
    manager->actuallySave();
  }
  static std::shared_ptr<TVAction> titled(const std::string& title) {
    auto action = tervano::action<TVAction>();
    action->setTitle(title);
    action->setIcon(Image::imageNamed("icon-move"));
    return action;
  }
  GtkWidget* addButton(const char* folderURI = kFolderURI) {
    GtkWidget* const button = newToolbarButton(*extension_, folderURI, window_, toldSelection);
    gtk_container_add(GTK_CONTAINER(strip_), button);
    gtk_widget_show_all(window_);
    return button;
  }
  std::string imageOf(GtkWidget* button) const {
    return fileOf(gtk_button_get_image(GTK_BUTTON(button)));
  }
  // The open menu of the window; null without one.
  GtkWidget* menu() const {
    GList* const attached = gtk_menu_get_for_attach_widget(window_);
    return attached == nullptr ? nullptr : static_cast<GtkWidget*>(attached->data);
  }
  std::string click(GtkWidget* button) {
    closeMenu();
    gtk_button_clicked(GTK_BUTTON(button));
    return menu() == nullptr ? "no menu" : textOfMenu(menu());
  }
  // Once it is what it is expected to be: changes arrive as messages, and pictures are drawn
  // meanwhile.
  std::string clickOnceItIs(const std::string& text, GtkWidget* button) {
    std::string found;
    static_cast<void>(waitUntil([&] { return (found = click(button)) == text; }));
    asked = {asked.back()};
    return found;
  }
  void closeMenu() const {
    if (menu() != nullptr) gtk_menu_shell_cancel(GTK_MENU_SHELL(menu()));
    runPendingMainItems();
  }
  // The paths of what was chosen last.
  std::vector<std::string> handedOver() const {
    const std::string url = workspace_.opened().back().absoluteString();
    return nlohmann::json::parse(contentsOf(platform_.home().dataHome() +
                                            "/Q4T7N2XR8K.com.vessok.tervano/" +
                                            url.substr(url.rfind('=') + 1)))
        .at("paths");
  }
  void chooseFirst() const {
    gtk_menu_shell_activate_item(GTK_MENU_SHELL(menu()), childrenOf(menu()).at(0), TRUE);
    runPendingMainItems();
  }

  VirtualDisplay display_;
  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingWorkspace workspace_;
  std::unique_ptr<HostExtension> extension_;
  GtkWidget* window_ = nullptr;
  GtkWidget* strip_ = nullptr;
};

TEST_F(ToolbarButtonTest, ItHasItsNameItsToolTipAndItsImage) {
  GtkWidget* const button = addButton();
  EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(button)), "Tervano");
  const GCharPtr toolTip(gtk_widget_get_tooltip_text(button));
  EXPECT_STREQ(toolTip.get(), "Click the toolbar item for a menu.");
  EXPECT_TRUE(imageOf(button).ends_with("/icon-tervano.svg")) << imageOf(button);
  EXPECT_TRUE(exists(imageOf(button)));
  EXPECT_TRUE(gtk_button_get_always_show_image(GTK_BUTTON(button)));
}

TEST_F(ToolbarButtonTest, ItsImageHasOneColourWhileThatIsWanted) {
  GtkWidget* const button = addButton();
  for (const bool isWanted : {true, false}) {
    TVUserDefaults::create()->setUseBlackAndWhiteIcon(isWanted);
    const std::string name = isWanted ? "/icon-tervano-symbolic.svg" : "/icon-tervano.svg";
    EXPECT_TRUE(waitUntil([&] { return imageOf(button).ends_with(name); })) << imageOf(button);
    EXPECT_TRUE(exists(imageOf(button)));
    EXPECT_EQ(imageOf(addButton()), imageOf(button));
  }
}

TEST_F(ToolbarButtonTest, ItIsShownWhileItIsWanted) {
  GtkWidget* const button = addButton();
  EXPECT_TRUE(gtk_widget_get_visible(button));
  for (const bool isWanted : {false, true}) {
    TVUserDefaults::create()->setShowIconInToolbar(isWanted);
    EXPECT_TRUE(waitUntil([&] { return (gtk_widget_get_visible(button) != FALSE) == isWanted; }));
    // Nor is the empty strip.
    EXPECT_EQ(gtk_widget_get_visible(strip_) != FALSE, isWanted);
    gtk_widget_show_all(window_);
    EXPECT_EQ(gtk_widget_get_visible(button) != FALSE, isWanted);
    EXPECT_EQ(gtk_widget_get_visible(strip_) != FALSE, isWanted);
    GtkWidget* const other = addButton();
    EXPECT_EQ(gtk_widget_get_visible(other) != FALSE, isWanted);
    gtk_widget_destroy(other);
  }
}

TEST_F(ToolbarButtonTest, WithoutAFittingActionItsMenuSaysSo) {
  EXPECT_EQ(click(addButton()), "-No Actions Enabled");
}

TEST_F(ToolbarButtonTest, ItsMenuHasTheActionsAndTheirPictures) {
  const auto group = tervano::action<TVMoveActionGroup>();
  group->setTitle("Sort_by");
  group->updateActions(ActionList{titled("Away")});
  save({titled("One_1"), group});
  const char* const text = "One_1@,Sort_by@[Away@]";
  EXPECT_EQ(clickOnceItIs(text, addButton()), text);
}

TEST_F(ToolbarButtonTest, ItActsOnWhatIsSelectedWhenTheMenuIsOpened) {
  save({titled("One")});
  GtkWidget* const button = addButton();
  told = SelectedItems{fileAt("/folder/a.txt"), fileAt("/folder/b.txt")};
  ASSERT_EQ(clickOnceItIs("One@", button), "One@");
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_EQ(asked[0].folderURI, kFolderURI);
  EXPECT_EQ(asked[0].window, window_);
  EXPECT_EQ(asked[0].button, button);
  told = SelectedItems{fileAt("/folder/c.txt")};
  chooseFirst();
  EXPECT_EQ(handedOver(), (std::vector<std::string>{"/folder/a.txt", "/folder/b.txt"}));
  ASSERT_EQ(clickOnceItIs("One@", button), "One@");
  chooseFirst();
  EXPECT_EQ(handedOver(), std::vector<std::string>{"/folder/c.txt"});
}

TEST_F(ToolbarButtonTest, WithoutASelectionItActsOnTheFolder) {
  save({titled("One")});
  GtkWidget* const button = addButton();
  for (const auto& nothing : {std::optional<SelectedItems>(), std::optional(SelectedItems())}) {
    told = nothing;
    ASSERT_EQ(clickOnceItIs("One@", button), "One@");
    chooseFirst();
    EXPECT_EQ(handedOver(), std::vector<std::string>{"/folder"});
  }
}

TEST_F(ToolbarButtonTest, WhatIsNotKnownOrNotOfThisMachineHasNoAction) {
  save({titled("One")});
  ASSERT_EQ(clickOnceItIs("One@", addButton()), "One@");
  told = unknownSelection();
  EXPECT_EQ(click(addButton()), "-No Actions Enabled");
  told.reset();
  for (const char* folder : {"trash:///", "sftp://host/folder", "recent:///", ""}) {
    EXPECT_EQ(click(addButton(folder)), "-No Actions Enabled") << folder;
  }
}

TEST_F(ToolbarButtonTest, AnItemOpensTheMenuInItsWindow) {
  save({titled("One")});
  ASSERT_EQ(clickOnceItIs("One@", addButton()), "One@");
  closeMenu();
  asked.clear();
  const GObjectPtr<GObject> item(newItem());
  popUpToolbarMenuOn(item.get(), *extension_, kFolderURI, window_, toldSelection);
  told = SelectedItems{fileAt("/folder/a.txt")};
  g_signal_emit_by_name(item.get(), "activate");
  ASSERT_NE(menu(), nullptr);
  EXPECT_EQ(textOfMenu(menu()), "One@");
  EXPECT_EQ(asked.at(0).button, nullptr);
  EXPECT_EQ(asked.at(0).window, window_);
  chooseFirst();
  EXPECT_EQ(handedOver(), std::vector<std::string>{"/folder/a.txt"});
}

TEST_F(ToolbarButtonTest, AnItemMayOutliveItsWindow) {
  const GObjectPtr<GObject> item(newItem());
  popUpToolbarMenuOn(item.get(), *extension_, kFolderURI, window_, toldSelection);
  gtk_widget_destroy(std::exchange(window_, nullptr));
  const WidgetCount count;
  g_signal_emit_by_name(item.get(), "activate");
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_EQ(asked[0].window, nullptr);
  EXPECT_EQ(count.living(), 0);
}

TEST_F(ToolbarButtonTest, AButtonMayBeDestroyedWhileOthersAreShown) {
  GtkWidget* const first = addButton();
  gtk_widget_destroy(addButton());
  TVUserDefaults::create()->setShowIconInToolbar(false);
  EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_visible(first) == FALSE; }));
}

TEST_F(ToolbarButtonTest, AMenuEndsWhenItIsClosedAndWhenAnEntryWasChosen) {
  save({titled("One")});
  GtkWidget* const button = addButton();
  ASSERT_EQ(clickOnceItIs("One@", button), "One@");
  closeMenu();
  const WidgetCount count;
  ASSERT_EQ(clickOnceItIs("One@", button), "One@");
  EXPECT_GT(count.living(), 0);
  closeMenu();
  EXPECT_EQ(count.living(), 0);
  ASSERT_EQ(clickOnceItIs("One@", button), "One@");
  chooseFirst();
  EXPECT_EQ(count.living(), 0);
}

TEST_F(ToolbarButtonTest, AMenuThatCannotOpenEnds) {
  GtkWidget* const button = addButton();
  // Another program holds the pointer, as one with an open menu does.
  GdkDisplay* const other = gdk_display_open(display_.name().c_str());
  GtkWidget* const holder = gtk_window_new(GTK_WINDOW_POPUP);
  gtk_window_set_screen(GTK_WINDOW(holder), gdk_display_get_default_screen(other));
  gtk_widget_show(holder);
  ASSERT_TRUE(waitUntil([&] {
    return gdk_seat_grab(gdk_display_get_default_seat(other), gtk_widget_get_window(holder),
                         GDK_SEAT_CAPABILITY_ALL, TRUE, nullptr, nullptr, nullptr,
                         nullptr) == GDK_GRAB_SUCCESS;
  }));
  gdk_display_sync(other);
  {
    const WidgetCount count;
    gtk_button_clicked(GTK_BUTTON(button));
    EXPECT_EQ(asked.size(), 1U);
    EXPECT_EQ(menu(), nullptr);
    EXPECT_EQ(count.living(), 0);
  }
  gdk_seat_ungrab(gdk_display_get_default_seat(other));
  gdk_display_sync(other);
  EXPECT_EQ(click(button), "-No Actions Enabled");
  gtk_widget_destroy(holder);
}

TEST_F(ToolbarButtonTest, AButtonOfWhichTheMemoryRunsOutLeavesNothingBehind) {
  const WidgetCount count;
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 1'000);
    GtkWidget* button = nullptr;
    {
      const FailingMemory failing(allocation);
      try {
        button = newToolbarButton(*extension_, kFolderURI, window_, toldSelection);
      } catch (const std::bad_alloc&) {
      }
      hasFailed = FailingMemory::hasFailed();
    }
    EXPECT_EQ(button == nullptr, hasFailed) << allocation;
    EXPECT_EQ(count.living() == 0, hasFailed) << allocation;
    if (button == nullptr) continue;
    EXPECT_TRUE(g_object_is_floating(button));
    g_object_ref_sink(button);
    gtk_widget_destroy(button);
    g_object_unref(button);
  }
  EXPECT_GT(allocation, 3);
  EXPECT_EQ(count.living(), 0);
}

TEST_F(ToolbarButtonTest, AMenuOfWhichTheMemoryRunsOutLeavesNothingBehind) {
  const auto group = tervano::action<TVMoveActionGroup>();
  group->setTitle("Sort");
  group->updateActions(ActionList{titled("Away"), titled("Farther")});
  save({titled("One"), group});
  GtkWidget* const button = addButton();
  ASSERT_EQ(clickOnceItIs("One@,Sort@[Away@,Farther@]", button), "One@,Sort@[Away@,Farther@]");
  closeMenu();
  asked.reserve(10'000);
  const WidgetCount count;
  int allocation = 0;
  for (bool hasFailed = true; hasFailed; ++allocation) {
    ASSERT_LT(allocation, 10'000);
    {
      const FailingMemory failing(allocation);
      gtk_button_clicked(GTK_BUTTON(button));
      hasFailed = FailingMemory::hasFailed();
    }
    EXPECT_EQ(menu() == nullptr, hasFailed) << allocation;
    EXPECT_EQ(count.living() == 0, hasFailed) << allocation;
  }
  EXPECT_GT(allocation, 10);
  closeMenu();
  EXPECT_EQ(count.living(), 0);
}

TEST_F(ToolbarButtonTest, AButtonHasATwinWhileAnotherOneIsShownForTheSameFolder) {
  GtkWidget* const button = addButton();
  EXPECT_FALSE(hasTwin(button));
  GtkWidget* const other = addButton("file:///other");
  EXPECT_FALSE(hasTwin(button));
  GtkWidget* const twin = addButton();
  EXPECT_TRUE(hasTwin(button));
  EXPECT_TRUE(hasTwin(twin));
  EXPECT_FALSE(hasTwin(other));
  gtk_widget_hide(twin);
  EXPECT_FALSE(hasTwin(button));
}

}  // namespace tervano::test
