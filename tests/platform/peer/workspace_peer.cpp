// A second process with a GioWorkspace of its own, since GLib looks for the desktop's folders once
// per process.
//
//   workspace_peer [mounts]   with "mounts": in a mount namespace of its own, observing volumes
//
//   open URL            says "opened 1" or "opened 0" (no handler), then "done" once nothing is
//                       pending
//   reveal URL...       says "done" once nothing is pending
//   mount PATH NAME     mounts a memory file system of that name; says "mounted"
//   move PATH NEWPATH   moves a mount; says "moved"
//   unmount PATH        says "unmounted"
//
// Each argument is a word for any bytes. A volume notification is said as "NAME PATH", a line of
// the log as "log LINE".

#include <sched.h>
#include <sys/mount.h>

#include "platform/linux/gio_workspace.h"
#include "platform/linux/linux_platform.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

using namespace tervano;
using namespace tervano::test;

namespace {

class SpokenLog : public Log {
 public:
  void write(std::string_view line) override { sayLine("log " + std::string(line)); }
};

void sayResult(int failure, const std::string& success) {
  sayLine(failure == 0 ? success : "failed");
}

}  // namespace

int main(int argc, char** argv) {
  static Platform services = linuxPlatform({});
  static SpokenLog log;
  services.log = &log;
  installPlatform(services);
  const bool watchesMounts = argc > 1 && std::string(argv[1]) == "mounts";
  if (watchesMounts && (unshare(CLONE_NEWNS) != 0 ||
                        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)) {
    sayLine("no mount namespace");
    return 1;
  }

  GioWorkspace workspace;
  std::vector<Subscription> subscriptions;
  if (watchesMounts) {
    for (const char* name : {kWorkspaceDidMountNotification, kWorkspaceDidUnmountNotification,
                             kWorkspaceDidRenameVolumeNotification}) {
      subscriptions.push_back(workspace.notificationCenter().addObserver(
          name, nullptr, [](const Notification& notification) {
            sayLine(notification.name + " " +
                    *notification.userInfo.at("NSDevicePath").getIf<std::string>());
          }));
    }
    sayLine("observing");
  }
  return serveLines([&](const std::vector<std::string>& words) {
    const auto argument = [&words](std::size_t at) { return fromWord(words.at(at)); };
    if (words[0] == "open") {
      sayLine(workspace.openURL(Url(argument(1))) ? "opened 1" : "opened 0");
      sayLine(waitUntil([&] { return workspace.pendingRequests() == 0; }) ? "done" : "pending");
    } else if (words[0] == "reveal") {
      std::vector<Url> urls;
      for (std::size_t i = 1; i < words.size(); ++i) urls.emplace_back(argument(i));
      workspace.activateFileViewerSelectingURLs(urls);
      sayLine(waitUntil([&] { return workspace.pendingRequests() == 0; }) ? "done" : "pending");
    } else if (words[0] == "mount") {
      sayResult(mount(argument(2).c_str(), argument(1).c_str(), "tmpfs", 0, nullptr), "mounted");
    } else if (words[0] == "move") {
      sayResult(mount(argument(1).c_str(), argument(2).c_str(), nullptr, MS_MOVE, nullptr),
                "moved");
    } else if (words[0] == "unmount") {
      sayResult(umount(argument(1).c_str()), "unmounted");
    }
  });
}
