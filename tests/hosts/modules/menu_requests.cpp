// Loads the module and makes two menu requests for that many files, each between two looks for
// kMark, by which a trace of its system calls is cut: menu_requests COUNT

#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "tests/hosts/modules/files.h"
#include "tests/hosts/modules/items.h"
#include "tests/hosts/modules/module.h"

#include TERVANO_MANAGER

int main(int argc, char** argv) {
  using namespace tervano::test;
  constexpr char kMark[] = "/menu-request";
  const int count = argc == 2 ? std::atoi(argv[1]) : 0;
  Files files;
  files.addMany("/folder", count);
  const Module module;
  GObject* const provider = module.newProvider();
  for (int request = 0; request < 2; ++request) {
    static_cast<void>(access(kMark, F_OK));
    GList* const answer = Manager::fileItems(provider, files.list());
    static_cast<void>(access(kMark, F_OK));
    const Items items(answer);
    std::cout << items.text() << "\n";
  }
  g_object_unref(provider);
}
