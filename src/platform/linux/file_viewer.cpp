#include "platform/linux/file_viewer.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/linux/activation.h"
#include "platform/linux/application_entry.h"
#include "platform/linux/bus_names.h"
#include "platform/linux/default_handlers.h"
#include "platform/linux/workspace_error.h"
#include "platform/log.h"

namespace tervano {

namespace {

constexpr char kFileManagerName[] = "org.freedesktop.FileManager1";
constexpr char kFileManagerPath[] = "/org/freedesktop/FileManager1";
constexpr char kFolderType[] = "inode/directory";

// Why nobody can be shown this; nil when somebody can.
std::optional<Error> problemWith(const std::string& path, bool isFolder) {
  if (!path.starts_with('/') || path.find('\0') != std::string::npos) {
    return workspaceError("\"" + path + "\" is no absolute path");
  }
  struct stat status {};
  if ((isFolder ? stat(path.c_str(), &status) : lstat(path.c_str(), &status)) != 0) {
    return posixError(errno, path);
  }
  if (isFolder && !S_ISDIR(status.st_mode)) return posixError(ENOTDIR, path);
  return std::nullopt;
}

void logFailure(const std::string& why) {
  log("Could not show the files: " + why);
}

}  // namespace

void FileViewer::showItems(const std::vector<Url>& urls) {
  if (!urls.empty()) call("ShowItems", urls, std::nullopt);
}

bool FileViewer::showFolder(const std::string& folder, const std::optional<std::string>& selected) {
  const bool hasFolder = !folder.empty() || !selected;
  auto problem = hasFolder ? problemWith(folder, true) : std::nullopt;
  if (!problem && selected) problem = problemWith(*selected, false);
  if (!problem) {
    const std::string shown = hasFolder ? folder : deletingLastPathComponent(*selected);
    if (sessionBusAddress() && isReachable(bus_, kFileManagerName, reachableTimeoutMilliseconds_)) {
      if (selected) {
        call("ShowItems", {Url::fileURLWithPath(*selected)}, shown);
      } else {
        call("ShowFolders", {Url::fileURLWithPath(shown, true)}, shown);
      }
      return true;
    }
    const auto handler = handlerEntryOfType(kFolderType);
    const auto application = handler ? applicationEntryAtPath(*handler, &problem) : std::nullopt;
    if (application) {
      problem = launcher_.open(*application, {Url::fileURLWithPath(shown, true)});
      if (!problem) return true;
    } else if (!problem) {
      problem = workspaceError("there is no file manager");
    }
  }
  logFailure(problem->message);
  return false;
}

void FileViewer::call(const char* method, const std::vector<Url>& urls,
                      const std::optional<std::string>& fallbackFolder) {
  ++pendingRequests_;
  bus_.post([this, method, urls, fallbackFolder, token = takeActivationToken()] {
    GVariantBuilder uris;
    g_variant_builder_init(&uris, G_VARIANT_TYPE("as"));
    for (const auto& url : urls) {
      const std::string& text = url.absoluteString();
      if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        g_variant_builder_add(&uris, "s", text.c_str());
      }
    }
    bus_.call(kFileManagerName, kFileManagerPath, kFileManagerName, method,
              g_variant_new("(@ass)", g_variant_builder_end(&uris), token.text().c_str()),
              ApplicationLauncher::kReplyTimeoutMilliseconds,
              [this, fallbackFolder, token](GVariant* /*reply*/, const GError* error) {
                if (error != nullptr) {
                  logFailure(error->message);
                  const auto handler = fallbackFolder && wasNotDelivered(*error)
                                           ? handlerEntryOfType(kFolderType)
                                           : std::nullopt;
                  if (handler) {
                    launcher_.openLater(*handler, Url::fileURLWithPath(*fallbackFolder, true),
                                        token);
                  }
                }
                --pendingRequests_;
              });
  });
}

}  // namespace tervano
