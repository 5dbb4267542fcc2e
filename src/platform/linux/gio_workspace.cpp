#include "platform/linux/gio_workspace.h"

#include <gio/gunixmounts.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/applications.h"
#include "platform/linux/application_entry.h"
#include "platform/linux/default_handlers.h"
#include "platform/linux/folder_bundle.h"
#include "platform/linux/guard.h"
#include "platform/linux/workspace_error.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr char kMountTable[] = "/proc/self/mountinfo";

std::optional<Url> entryURL(const std::optional<std::string>& path) {
  return path ? std::optional<Url>(Url::fileURLWithPath(*path)) : std::nullopt;
}

// What a location of an application can be.
enum class ApplicationKind { desktopEntry, folderBundle, program };

// Nil, with the reason in `error`, when there is no application.
std::optional<ApplicationKind> applicationKind(const std::string& path, Error& error) {
  const std::string extension = pathExtension(path);
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    error = posixError(errno, "The application \"" + path + "\"");
    return std::nullopt;
  }
  if (S_ISDIR(status.st_mode)) {
    if (g_ascii_strcasecmp(extension.c_str(), "app") == 0) return ApplicationKind::folderBundle;
    error = workspaceError("\"" + path + "\" is a folder, not an application");
    return std::nullopt;
  }
  if (S_ISREG(status.st_mode)) {
    return extension == "desktop" ? ApplicationKind::desktopEntry : ApplicationKind::program;
  }
  error = workspaceError("\"" + path + "\" is no application");
  return std::nullopt;
}

void mountsChanged(GUnixMountMonitor* /*monitor*/, gpointer handler) {
  guarded("a change of the mounts",
          [handler] { (*static_cast<std::function<void()>*>(handler))(); });
}

}  // namespace

std::vector<VolumeChange> volumeChanges(const std::vector<MountTableEntry>& before,
                                        const std::vector<MountTableEntry>& after) {
  const auto without = [](const auto& entries, const auto& others) {
    std::vector<MountTableEntry> rest;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(rest), [&](const auto& entry) {
      return std::find(others.begin(), others.end(), entry) == others.end();
    });
    return rest;
  };
  const auto gone = without(before, after);
  auto come = without(after, before);
  std::vector<VolumeChange> changes;
  for (const auto& old : gone) {
    // The same folder of the same file system at another place is the same volume renamed.
    const auto renamed = std::find_if(come.begin(), come.end(), [&](const auto& entry) {
      return entry.device == old.device && entry.root == old.root &&
             entry.mountPoint != old.mountPoint;
    });
    if (renamed == come.end()) {
      changes.push_back({kWorkspaceDidUnmountNotification, old.mountPoint});
    } else {
      changes.push_back({kWorkspaceDidRenameVolumeNotification, renamed->mountPoint});
      come.erase(renamed);
    }
  }
  for (const auto& entry : come) {
    changes.push_back({kWorkspaceDidMountNotification, entry.mountPoint});
  }
  return changes;
}

GioWorkspace::GioWorkspace(const WorkspaceTimeouts& timeouts)
    : launcher_(bus_, pendingRequests_, timeouts.reachableMilliseconds),
      mail_(bus_, launcher_, pendingRequests_,
            {timeouts.mailAcceptedMilliseconds, timeouts.mailAnsweredMilliseconds}),
      viewer_(bus_, launcher_, pendingRequests_, timeouts.reachableMilliseconds) {}

GioWorkspace::~GioWorkspace() {
  if (mountMonitor_ != nullptr) {
    g_signal_handler_disconnect(mountMonitor_.get(), mountMonitorHandler_);
  }
}

bool GioWorkspace::openURL(const Url& url) {
  const auto handler = handlerEntryOfURL(url);
  if (handler) launcher_.openLater(*handler, url);
  return handler.has_value();
}

std::optional<Url> GioWorkspace::URLForApplicationToOpenURL(const Url& url) const {
  return entryURL(handlerEntryOfURL(url));
}

std::optional<Url> GioWorkspace::URLForApplicationWithBundleIdentifier(
    const std::string& bundleIdentifier) const {
  return entryURL(entryWithIdentifier(bundleIdentifier));
}

std::optional<RunningApplication> GioWorkspace::openURLsWithApplicationAtURL(
    const std::vector<Url>& urls, const std::optional<Url>& applicationURL,
    std::uint32_t /*options*/, const Value::Dictionary& /*configuration*/,
    std::optional<Error>* error) {
  const auto failure = openURLs(urls, applicationURL);
  if (failure) {
    if (error != nullptr) *error = failure;
    return std::nullopt;
  }
  return RunningApplication{
      platform().applications->bundleIdentifierAtPath(applicationURL->path()).value_or("")};
}

std::optional<Error> GioWorkspace::openURLs(const std::vector<Url>& urls,
                                            const std::optional<Url>& applicationURL) {
  if (!applicationURL) return workspaceError("No application is chosen");
  const std::string path = applicationURL->path();
  if (path.empty() || path.find('\0') != std::string::npos) {
    return workspaceError("\"" + applicationURL->absoluteString() +
                          "\" is not the location of an application");
  }
  Error why;
  const auto kind = applicationKind(path, why);
  if (!kind) return why;
  if (*kind == ApplicationKind::program) return launcher_.openWithProgram(path, urls);
  if (*kind == ApplicationKind::folderBundle) {
    const auto program = bundleExecutable(path, why);
    return program ? launcher_.openWithProgram(*program, urls) : why;
  }
  std::optional<Error> failure;
  const auto application = applicationEntryAtPath(path, &failure);
  if (!application) return failure;
  if (application->isHidden) {
    return workspaceError("The application \"" + application->name + "\" has been removed");
  }
  const bool hasFiles =
      std::any_of(urls.begin(), urls.end(), [](const Url& url) { return url.isFileURL(); });
  return hasFiles && isMailHandler(path) ? mail_.compose(*application, urls)
                                         : launcher_.open(*application, urls);
}

bool GioWorkspace::selectFileInFileViewerRootedAtPath(const std::optional<std::string>& fullPath,
                                                      const std::string& rootFullPath) {
  return viewer_.showFolder(rootFullPath, fullPath);
}

void GioWorkspace::activateFileViewerSelectingURLs(const std::vector<Url>& urls) {
  viewer_.showItems(urls);
}

NotificationCenter& GioWorkspace::notificationCenter() {
  const std::lock_guard lock(mutex_);
  if (mountMonitor_ == nullptr) {
    mounts_ = mountTableEntries(mountTableText(kMountTable));
    mountMonitor_.reset(G_OBJECT(g_unix_mount_monitor_get()));
    mountMonitorHandler_ = g_signal_connect_data(
        mountMonitor_.get(), "mounts-changed", G_CALLBACK(mountsChanged),
        new std::function<void()>([this] { mountsDidChange(); }),
        [](gpointer handler, GClosure* /*closure*/) {
          delete static_cast<std::function<void()>*>(handler);
        },
        static_cast<GConnectFlags>(0));
  }
  return notificationCenter_;
}

void GioWorkspace::mountsDidChange() {
  auto mounts = mountTableEntries(mountTableText(kMountTable));
  std::vector<VolumeChange> changes;
  {
    const std::lock_guard lock(mutex_);
    changes = volumeChanges(mounts_, mounts);
    mounts_ = std::move(mounts);
  }
  for (auto& change : changes) {
    platform().runLoop->dispatchAsyncOnMainQueue([this, change = std::move(change)] {
      notificationCenter_.post({change.notification, this,
                                Value::Dictionary{{"NSDevicePath", Value(change.mountPoint)}}});
    });
  }
}

}  // namespace tervano
