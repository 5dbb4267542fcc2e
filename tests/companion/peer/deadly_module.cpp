#include <csignal>

// A module that ends whatever process loads it.
[[gnu::constructor]] static void die() {
  std::raise(SIGKILL);
}
