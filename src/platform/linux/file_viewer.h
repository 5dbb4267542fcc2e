#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "archive/url.h"
#include "platform/linux/application_launcher.h"
#include "platform/linux/session_bus.h"

namespace tervano {

// The desktop's file manager: org.freedesktop.FileManager1 of the File Manager D-Bus Interface, for
// folders also the default handler of "inode/directory".
class FileViewer {
 public:
  // `pendingRequests` counts what has not been answered yet.
  FileViewer(SessionBus& bus, ApplicationLauncher& launcher, std::atomic<int>& pendingRequests,
             int reachableTimeoutMilliseconds)
      : bus_(bus),
        launcher_(launcher),
        pendingRequests_(pendingRequests),
        reachableTimeoutMilliseconds_(reachableTimeoutMilliseconds) {}

  // Shows the files selected in their folders. A failure is one line in the log. Any thread.
  void showItems(const std::vector<Url>& urls);
  // Opens the folder in a new viewer, or a viewer with the file `selected` selected, which may do
  // without a folder. False, with one line in the log, when it is not there or nobody can be asked.
  // Waits for the bus a bounded time. Any thread but the bus thread; needs no main loop.
  bool showFolder(const std::string& folder, const std::optional<std::string>& selected);

 private:
  void call(const char* method, const std::vector<Url>& urls,
            const std::optional<std::string>& fallbackFolder);

  SessionBus& bus_;
  ApplicationLauncher& launcher_;
  std::atomic<int>& pendingRequests_;
  int reachableTimeoutMilliseconds_;
};

}  // namespace tervano
