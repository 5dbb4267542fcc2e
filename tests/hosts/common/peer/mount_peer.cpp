// The extension of a file manager in a mount namespace of its own:
//
//   mount_peer FOLDER
//
// mounts a memory file system at the folder and unmounts it again; says "watched" or "not watched"
// about it before, while it is mounted, and afterwards.

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <iostream>

#include "actions/register_action_classes.h"
#include "hosts/common/host_extension.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

using namespace tervano;
using namespace tervano::test;

namespace {

// An ordinary user may have a namespace of mounts only together with one of users.
bool enterNamespace() {
  const int namespaces = CLONE_NEWNS | (geteuid() == 0 ? 0 : CLONE_NEWUSER);
  return unshare(namespaces) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void sayOnceItIs(const HostExtension& extension, const Url& folder, bool watched) {
  static_cast<void>(
      waitUntil([&] { return extension.watchedDirectories().contains(folder) == watched; }));
  std::cout << (extension.watchedDirectories().contains(folder) ? "watched\n" : "not watched\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || !enterNamespace()) {
    std::cerr << "no namespace of mounts\n";
    return 1;
  }
  const std::string path = argv[1];
  const Url folder = Url::fileURLWithPath(path, true);
  ClassRegistry registry;
  registerActionClasses(registry);
  const ScopedPlatform platform(&registry);
  const HostExtension extension(HostExtension::Icons::none);
  sayOnceItIs(extension, folder, false);
  if (mount("tmpfs", path.c_str(), "tmpfs", 0, "size=64k") != 0) return 1;
  sayOnceItIs(extension, folder, true);
  if (umount(path.c_str()) != 0) return 1;
  sayOnceItIs(extension, folder, false);
}
