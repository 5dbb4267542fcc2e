#pragma once

#include <string>
#include <vector>

#include "archive/url.h"
#include "platform/notification_center.h"

namespace tervano {

// Posted on the workspace's notification centre, on the main queue.
inline constexpr char kWorkspaceDidMountNotification[] = "NSWorkspaceDidMountNotification";
inline constexpr char kWorkspaceDidUnmountNotification[] = "NSWorkspaceDidUnmountNotification";
inline constexpr char kWorkspaceDidRenameVolumeNotification[] =
    "NSWorkspaceDidRenameVolumeNotification";

// The desktop: opening and revealing. Requests never block; any thread.
class Workspace {
 public:
  virtual ~Workspace() = default;

  // Hands the URL, byte for byte, to the default handler of its scheme. Answers whether there is
  // one.
  virtual bool openURL(const Url& url) = 0;
  // Shows the files selected in the file manager; an empty list asks for nothing.
  virtual void activateFileViewerSelectingURLs(const std::vector<Url>& urls) = 0;
  // Requests not yet answered; a short-lived program waits for 0.
  virtual int pendingRequests() const = 0;
  // Volume notifications, posted while somebody observes them.
  virtual NotificationCenter& notificationCenter() = 0;
};

class ForwardingWorkspace : public Workspace {
 public:
  explicit ForwardingWorkspace(Workspace& real) : real_(real) {}
  bool openURL(const Url& url) override { return real_.openURL(url); }
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override {
    real_.activateFileViewerSelectingURLs(urls);
  }
  int pendingRequests() const override { return real_.pendingRequests(); }
  NotificationCenter& notificationCenter() override { return real_.notificationCenter(); }

 private:
  Workspace& real_;
};

}  // namespace tervano
