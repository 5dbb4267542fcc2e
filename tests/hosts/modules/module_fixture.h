#pragma once

#include <glib-object.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/glib_handles.h"
#include "tests/companion/tervano_program.h"
#include "tests/hosts/modules/failing_memory.h"
#include "tests/hosts/modules/files.h"
#include "tests/hosts/modules/items.h"
#include "tests/hosts/modules/module.h"

// Any will do where the header is looked at alone.
#ifndef TERVANO_MANAGER
#define TERVANO_MANAGER "tests/hosts/modules/caja.h"
#endif
#include TERVANO_MANAGER

namespace tervano::test {

// What the tests of one program share, as a file manager's process does: the extension that the
// module starts is never ended.
struct ModuleProcess {
  static ModuleProcess& shared() {
    static auto& process = *new ModuleProcess;
    return process;
  }
  ModuleProcess() {
    home.home().setVariable("XDG_DATA_DIRS", "/usr/share");
    home.home().setVariable("LC_ALL", "C.UTF-8");
  }

  ProgramHome home;
};

// The text of a menu, icons left out where the file manager draws none.
inline std::string drawn(std::string text) {
  if (!Manager::kDrawsIcons) std::erase(text, '@');
  return text;
}

class ModuleTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(home_.container());
    home_.succeed({"prefs", "set", "useSubmenu", "yes"});
    module_ = std::make_unique<Module>();
    provider_.reset(module_->newProvider());
    files_.add(newLocalFile(home_.file("one.txt")));
  }

  // Runs the process's main loop until `done`, also asked now and then, answers true, at most ten
  // seconds; answers whether it did.
  static bool waitUntil(const std::function<bool()>& done) {
    const gint64 end = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
    const guint tick = g_timeout_add(
        5, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    bool isDone = done();
    while (!isDone && g_get_monotonic_time() < end) {
      g_main_context_iteration(nullptr, TRUE);
      isDone = done();
    }
    g_source_remove(tick);
    return isDone;
  }

  std::string add(std::vector<std::string> words) const {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }
  std::string addMove(const std::string& title, std::vector<std::string> options = {}) const {
    std::vector<std::string> words = {"move", "--title", title, "--to", home_.folder("to")};
    words.insert(words.end(), options.begin(), options.end());
    return add(std::move(words));
  }

  GList* request(const Files& files) const {
    return Manager::fileItems(provider_.get(), files.list());
  }
  std::string textOf(const Files& files) const { return Items(request(files)).text(); }
  // The same once the list is what it is expected to be: changes arrive as messages, and icons are
  // drawn meanwhile.
  std::string textOnceItIs(const std::string& text, const Files& files) const {
    std::string found;
    static_cast<void>(waitUntil([&] { return (found = textOf(files)) == text; }));
    return found;
  }
  std::string textOnceItIs(const std::string& text) const { return textOnceItIs(text, files_); }

  GList* requestForFolder(GObject* folder) const {
    return Manager::folderItems(provider_.get(), reinterpret_cast<Manager::FileInfo*>(folder));
  }

  // The paths of each choice that was handed over.
  std::set<std::vector<std::string>> handedOver() const {
    std::set<std::vector<std::string>> choices;
    for (const auto& file : std::filesystem::directory_iterator(home_.container())) {
      if (file.path().filename().string().size() != 36) continue;
      choices.insert(nlohmann::json::parse(contentsOf(file.path())).at("paths"));
    }
    return choices;
  }

  // Asks for menus with each allocation refused in turn, and what follows it: there is none, and
  // nothing is thrown, until the memory is enough for this one.
  static void expectNoMenuWithoutMemory(const std::function<GList*()>& menu,
                                        const std::string& text) {
    int allocation = 0;
    for (bool hasFailed = true; hasFailed; ++allocation) {
      GList* answer = nullptr;
      {
        const FailingMemory failing(allocation);
        answer = menu();
        hasFailed = FailingMemory::hasFailed();
      }
      const std::string found = Items(answer).text();
      EXPECT_EQ(found, hasFailed ? "" : text) << allocation;
      ASSERT_LT(allocation, 10'000);
    }
    // Of what had to be allocated, at least the selection and each item.
    EXPECT_GT(allocation, 3);
  }

  ProgramHome& home_ = ModuleProcess::shared().home;
  std::unique_ptr<Module> module_;
  GObjectPtr<GObject> provider_;
  Files files_;
};

}  // namespace tervano::test
