// Loads the module and makes two menu requests for that many files: menu_requests COUNT

#include <cstdlib>
#include <iostream>

#include "tests/hosts/modules/files.h"
#include "tests/hosts/modules/items.h"
#include "tests/hosts/modules/module.h"
#include "tests/hosts/system_calls/system_calls.h"

#include TERVANO_MANAGER

int main(int argc, char** argv) {
  using namespace tervano::test;
  const int count = argc == 2 ? std::atoi(argv[1]) : 0;
  Files files;
  files.addMany("/folder", count);
  const Module module;
  GObject* const provider = module.newProvider();
  for (int request = 0; request < 2; ++request) {
    markMenuRequest();
    GList* const answer = Manager::fileItems(provider, files.list());
    markMenuRequest();
    const Items items(answer);
    std::cout << items.text() << "\n";
  }
  g_object_unref(provider);
}
