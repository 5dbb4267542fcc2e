#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/application_launcher.h"
#include "platform/linux/file_viewer.h"
#include "platform/linux/mail_composer.h"
#include "platform/linux/mount_table_volumes.h"
#include "platform/linux/session_bus.h"
#include "platform/workspace.h"

namespace tervano {

// How long a caller waits for the session bus.
struct WorkspaceTimeouts {
  // For whether somebody can be asked.
  int reachableMilliseconds = 2000;
  // For the mail portal to accept a message, and then for its answer.
  int mailAcceptedMilliseconds = 5000;
  int mailAnsweredMilliseconds = 3000;
};

// The desktop by its own conventions: default handlers of URL schemes and applications (Desktop
// Entry Specification 1.5 and its D-Bus activation), the mail portal, org.freedesktop.FileManager1,
// and the kernel's mount table.
//
// Finding a handler reads the desktop's tables, so it touches the disk. The requests are made on
// the bus thread, which no caller needs to be; no main loop has to run. A request that fails after
// its caller was told that it was made is one line in the log; that an application did not open
// its files is a notification besides.
class GioWorkspace : public Workspace {
 public:
  explicit GioWorkspace(const WorkspaceTimeouts& timeouts = {});
  ~GioWorkspace() override;

  bool openURL(const Url& url) override;
  std::optional<Url> URLForApplicationToOpenURL(const Url& url) const override;
  std::optional<Url> URLForApplicationWithBundleIdentifier(
      const std::string& bundleIdentifier) const override;
  std::optional<RunningApplication> openURLsWithApplicationAtURL(
      const std::vector<Url>& urls, const std::optional<Url>& applicationURL, std::uint32_t options,
      const Value::Dictionary& configuration, std::optional<Error>* error) override;
  bool selectFileInFileViewerRootedAtPath(const std::optional<std::string>& fullPath,
                                          const std::string& rootFullPath) override;
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override;
  int pendingRequests() const override { return pendingRequests_; }
  // Watches the mount table from the first call on.
  NotificationCenter& notificationCenter() override;

 private:
  std::optional<Error> openURLs(const std::vector<Url>& urls,
                                const std::optional<Url>& applicationURL);
  void mountsDidChange();

  std::atomic<int> pendingRequests_{0};
  ApplicationLauncher launcher_;
  MailComposer mail_;
  FileViewer viewer_;
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
