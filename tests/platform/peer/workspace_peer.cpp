// A second process with a GioWorkspace of its own, since GLib looks for the desktop's folders once
// per process.
//
//   workspace_peer [mounts | hasty | impatient | limited]
//
// with "mounts": in a mount namespace of its own, observing volumes; with "hasty": waits for
// nobody long; with "impatient": waits a moment only for what the user does in a dialog; with
// "limited": with room for 128 KiB of arguments
//
//   request TOKEN ID    what follows is done for a new request with that token
//   open URL            says "opened 1" or "opened 0" (no handler), then "done" once nothing is
//                       pending
//   reveal URL...       says "done" once nothing is pending
//   open-with APP URL...  asks the application; APP "nil" is none
//   identify APP        opens nothing with it; says its identifier
//   crowd APP URL N     the same from N threads at once
//   open-many APP N     the same with N long URLs
//   handler URL         says "handler URL" or "handler nil"
//   show ROOT [FILE]    says "shown 1" or "shown 0", then "done" once nothing is pending
//   mount PATH NAME     mounts a memory file system of that name; says "mounted"
//   move PATH NEWPATH   moves a mount; says "moved"
//   unmount PATH        says "unmounted"
//
// "open-with" says "opened" or "failed MESSAGE" for each answer, then "done" once
// nothing is pending. Each argument but a number is a word for any bytes. A volume notification is
// said as "NAME PATH", a line of the log as "log LINE", a notification to the user as "tell TITLE:
// TEXT".

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <thread>

#include "platform/linux/activation.h"
#include "platform/linux/gio_workspace.h"
#include "platform/linux/linux_platform.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

using namespace tervano;
using namespace tervano::test;

namespace {

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

class SpokenLog : public Log {
 public:
  void write(std::string_view line) override { sayLine(oneLine("log " + std::string(line))); }
};

class SpokenNotifications : public ForwardingUserNotifications {
 public:
  using ForwardingUserNotifications::ForwardingUserNotifications;
  void deliverNotification(const UserNotification& notification) override {
    sayLine(oneLine("tell " + notification.title + ": " +
                    notification.informativeText.value_or("nil")));
  }
};

WorkspaceTimeouts timeouts(const std::string& mode) {
  constexpr int kMoment = 300;
  // Enough for a portal that does answer.
  constexpr int kWhile = 1500;
  WorkspaceTimeouts timeouts;
  if (mode == "hasty") timeouts = {kMoment, kWhile, kMoment};
  if (mode == "impatient") timeouts.mailAnsweredMilliseconds = kMoment;
  return timeouts;
}

void sayWhetherOpened(Workspace& workspace, const std::string& application,
                      const std::vector<Url>& urls) {
  std::optional<Error> error;
  const auto running = workspace.openURLsWithApplicationAtURL(
      urls, application == "nil" ? std::nullopt : std::optional<Url>(fromWord(application)),
      kWorkspaceLaunchDefault, {}, &error);
  if (running.has_value() == error.has_value()) {
    sayLine("both or neither");
  } else {
    sayLine(running ? "opened" : oneLine("failed " + error->message));
  }
}

void sayResult(int failure, const std::string& success) {
  sayLine(failure == 0 ? success : "failed");
}

}  // namespace

int main(int argc, char** argv) {
  static Platform services = linuxPlatform({});
  static SpokenLog log;
  services.log = &log;
  static SpokenNotifications notifications(*services.userNotifications);
  services.userNotifications = &notifications;
  installPlatform(services);
  const std::string mode = argc > 1 ? argv[1] : "";
  const bool watchesMounts = mode == "mounts";
  if (mode == "limited") {
    // The kernel gives arguments a quarter of the stack.
    constexpr rlim_t kStack = 512 * 1024;
    const rlimit limit{kStack, kStack};
    setrlimit(RLIMIT_STACK, &limit);
  }
  if (watchesMounts && (unshare(CLONE_NEWNS) != 0 ||
                        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)) {
    sayLine("no mount namespace");
    return 1;
  }

  GioWorkspace workspace(timeouts(mode));
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
  const auto sayDone = [&workspace] {
    sayLine(waitUntil([&] { return workspace.pendingRequests() == 0; }) ? "done" : "pending");
  };
  std::shared_ptr<Activation> request;
  return serveLines([&](const std::vector<std::string>& words) {
    const ActivationScope scope(request);
    const auto argument = [&words](std::size_t at) { return fromWord(words.at(at)); };
    const auto urlsFrom = [&](std::size_t at) {
      std::vector<Url> urls;
      for (; at < words.size(); ++at) urls.emplace_back(argument(at));
      return urls;
    };
    if (words[0] == "request") {
      request = std::make_shared<Activation>(ActivationToken::fromTexts(argument(1), argument(2)));
    } else if (words[0] == "open") {
      sayLine(workspace.openURL(Url(argument(1))) ? "opened 1" : "opened 0");
      sayDone();
    } else if (words[0] == "reveal") {
      workspace.activateFileViewerSelectingURLs(urlsFrom(1));
      sayDone();
    } else if (words[0] == "open-with") {
      sayWhetherOpened(workspace, words.at(1), urlsFrom(2));
      sayDone();
    } else if (words[0] == "identify") {
      const auto running = workspace.openURLsWithApplicationAtURL(
          {}, Url(argument(1)), kWorkspaceLaunchDefault, {}, nullptr);
      sayLine(running ? running->bundleIdentifier : "failed");
    } else if (words[0] == "open-many") {
      constexpr std::size_t kLength = 16'384;
      const Url url("tervano:" + std::string(kLength, 'x'));
      sayWhetherOpened(workspace, words.at(1), std::vector<Url>(std::stoul(words.at(2)), url));
      sayDone();
    } else if (words[0] == "crowd") {
      std::vector<std::thread> threads(std::stoul(words.at(3)));
      for (auto& thread : threads) {
        thread = std::thread([&] { sayWhetherOpened(workspace, words.at(1), {Url(argument(2))}); });
      }
      for (auto& thread : threads) thread.join();
      sayDone();
    } else if (words[0] == "handler") {
      const auto handler = workspace.URLForApplicationToOpenURL(Url(argument(1)));
      sayLine("handler " + (handler ? handler->absoluteString() : "nil"));
    } else if (words[0] == "show") {
      const auto selected =
          words.size() > 2 ? std::optional<std::string>(argument(2)) : std::nullopt;
      sayLine(workspace.selectFileInFileViewerRootedAtPath(selected, argument(1)) ? "shown 1"
                                                                                  : "shown 0");
      sayDone();
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
