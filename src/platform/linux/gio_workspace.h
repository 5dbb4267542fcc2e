#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/mount_table_volumes.h"
#include "platform/linux/session_bus.h"
#include "platform/workspace.h"

namespace tervano {

// The desktop by its own conventions: default handlers of URL schemes (Desktop Entry Specification
// 1.5 and its D-Bus activation), org.freedesktop.FileManager1, and the kernel's mount table.
//
// Finding a handler reads the desktop's tables, so it touches the disk; what follows happens on a
// thread of its own, and a failure there is one line in the log.
class GioWorkspace : public Workspace {
 public:
  static constexpr int kReplyTimeoutMilliseconds = 25'000;

  GioWorkspace() = default;
  ~GioWorkspace() override;

  bool openURL(const Url& url) override;
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override;
  int pendingRequests() const override { return pendingRequests_; }
  // Watches the mount table from the first call on.
  NotificationCenter& notificationCenter() override;

 private:
  void mountsDidChange();

  std::atomic<int> pendingRequests_{0};
  NotificationCenter notificationCenter_;
  std::mutex mutex_;
  // A GUnixMountMonitor.
  GObjectPtr<GObject> mountMonitor_;
  unsigned long mountMonitorHandler_ = 0;
  // What the last look at the mount table showed.
  std::vector<MountTableEntry> mounts_;

  // Last, so that its thread ends before what it uses.
  SessionBus bus_;
};

// The arguments that an Exec line of a desktop entry asks for with one URL: quoting undone, "%u"
// and
// "%U" replaced by the URL byte for byte, "%f" and "%F" by its local path where it has one; a line
// without any of them gets it at its end. Empty when the line is broken.
struct DesktopEntryNames {
  std::string icon;
  std::string name;
  std::string path;
};
std::vector<std::string> expandedExec(const std::string& exec, const DesktopEntryNames& names,
                                      const Url& url);

// The notifications that tell the way from one state of the mount table to the next, each with the
// mount point (for a rename the new one).
struct VolumeChange {
  std::string notification;
  std::string mountPoint;
  friend bool operator==(const VolumeChange&, const VolumeChange&) = default;
};
std::vector<VolumeChange> volumeChanges(const std::vector<MountTableEntry>& before,
                                        const std::vector<MountTableEntry>& after);

}  // namespace tervano
