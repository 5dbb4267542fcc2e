#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "archive/url.h"
#include "archive/value.h"
#include "platform/error.h"
#include "platform/notification_center.h"

namespace tervano {

// Posted on the workspace's notification centre, on the main queue.
inline constexpr char kWorkspaceDidMountNotification[] = "NSWorkspaceDidMountNotification";
inline constexpr char kWorkspaceDidUnmountNotification[] = "NSWorkspaceDidUnmountNotification";
inline constexpr char kWorkspaceDidRenameVolumeNotification[] =
    "NSWorkspaceDidRenameVolumeNotification";

// The launch option that does not wait for the application to be ready.
inline constexpr std::uint32_t kWorkspaceLaunchDefault = 0x10000;

// An application that has been asked to open something.
struct RunningApplication {
  // The desktop-file id, or the bundle identifier of a folder bundle; empty when it has none.
  std::string bundleIdentifier;
};

// The desktop: opening and revealing. Requests do not block unless their comment says so; any
// thread.
class Workspace {
 public:
  virtual ~Workspace() = default;

  // Hands the URL, byte for byte, to the default handler of its scheme. Answers whether there is
  // one.
  virtual bool openURL(const Url& url) = 0;
  // The application that openURL would give the URL to, as the file URL of its desktop entry; nil
  // when there is none.
  virtual std::optional<Url> URLForApplicationToOpenURL(const Url& url) const = 0;
  // The desktop entry of the installed application with that desktop-file id, ".desktop" or not;
  // nil when there is none.
  virtual std::optional<Url> URLForApplicationWithBundleIdentifier(
      const std::string& bundleIdentifier) const = 0;
  // Opens all files in one request with the application whose desktop entry, folder bundle or
  // program `applicationURL` names. The default handler of "mailto:" gets them as the attachments
  // of one new message. Answers the application once it has been asked; nil with the reason in
  // `error` when it could not be. May wait for the desktop's answer, a bounded time.
  virtual std::optional<RunningApplication> openURLsWithApplicationAtURL(
      const std::vector<Url>& urls, const std::optional<Url>& applicationURL, std::uint32_t options,
      const Value::Dictionary& configuration, std::optional<Error>* error) = 0;
  // Opens a new file viewer that shows the folder `rootFullPath`, with `fullPath` selected in it
  // unless that is nil. Answers whether anybody could be asked.
  virtual bool selectFileInFileViewerRootedAtPath(const std::optional<std::string>& fullPath,
                                                  const std::string& rootFullPath) = 0;
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
  std::optional<Url> URLForApplicationToOpenURL(const Url& url) const override {
    return real_.URLForApplicationToOpenURL(url);
  }
  std::optional<Url> URLForApplicationWithBundleIdentifier(
      const std::string& bundleIdentifier) const override {
    return real_.URLForApplicationWithBundleIdentifier(bundleIdentifier);
  }
  std::optional<RunningApplication> openURLsWithApplicationAtURL(
      const std::vector<Url>& urls, const std::optional<Url>& applicationURL, std::uint32_t options,
      const Value::Dictionary& configuration, std::optional<Error>* error) override {
    return real_.openURLsWithApplicationAtURL(urls, applicationURL, options, configuration, error);
  }
  bool selectFileInFileViewerRootedAtPath(const std::optional<std::string>& fullPath,
                                          const std::string& rootFullPath) override {
    return real_.selectFileInFileViewerRootedAtPath(fullPath, rootFullPath);
  }
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override {
    real_.activateFileViewerSelectingURLs(urls);
  }
  int pendingRequests() const override { return real_.pendingRequests(); }
  NotificationCenter& notificationCenter() override { return real_.notificationCenter(); }

 private:
  Workspace& real_;
};

}  // namespace tervano
