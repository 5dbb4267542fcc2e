// Loads the module and makes two menu requests for that many files, for a folder's background, and
// for the toolbar where there is one: menu_requests COUNT

#include <cstdlib>
#include <functional>
#include <iostream>

#include "platform/linux/glib_handles.h"
#include "tests/hosts/modules/files.h"
#include "tests/hosts/modules/items.h"
#include "tests/hosts/modules/module.h"
#include "tests/hosts/system_calls/system_calls.h"

#include TERVANO_MANAGER

int main(int argc, char** argv) {
  using namespace tervano;
  using namespace tervano::test;
  const int count = argc == 2 ? std::atoi(argv[1]) : 0;
  Files files;
  files.addMany("/folder", count);
  const GObjectPtr<GObject> folderFile(newLocalFile("/folder", true));
  auto* const folder = reinterpret_cast<Manager::FileInfo*>(folderFile.get());
  markStart();
  const Module module;
  const GObjectPtr<GObject> provider(module.newProvider());
  markStart();
  const auto request = [](const std::function<GList*()>& ask) {
    for (int i = 0; i < 2; ++i) {
      markMenuRequest();
      GList* const answer = ask();
      markMenuRequest();
      const Items items(answer);
      std::cout << items.text() << "\n";
    }
  };
  request([&] { return Manager::fileItems(provider.get(), files.list()); });
  request([&] { return Manager::folderItems(provider.get(), folder); });
#ifdef CAJA_TYPE_MENU_PROVIDER
  request([&] { return Manager::toolbarItems(provider.get(), folder, nullptr); });
#endif
}
