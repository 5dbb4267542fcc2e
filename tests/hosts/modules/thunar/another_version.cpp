// Loads the module into a Thunar of another version, and says what it provides.

#include <iostream>

#include "tests/hosts/modules/module.h"

#include TERVANO_MANAGER

// The module asks this function of the library.
extern "C" __attribute__((visibility("default"))) const gchar* thunarx_check_version(
    guint /*major*/, guint /*minor*/, guint /*micro*/) {
  return "version too old";
}

int main() {
  const tervano::test::Module module;
  std::cout << (module.newProvider() == nullptr ? "nothing\n" : "a provider\n");
}
