#include "platform/linux/gio_workspace.h"

#include <fcntl.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gunixmounts.h>
#include <glib-unix.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/guard.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr char kMountTable[] = "/proc/self/mountinfo";

// RFC 3986: a letter, then letters, digits, "+", "-" and ".".
std::string schemeOf(const std::string& url) {
  const auto colon = url.find(':');
  if (colon == std::string::npos) return {};
  std::string scheme = url.substr(0, colon);
  const bool isValid = !scheme.empty() && g_ascii_isalpha(scheme[0]) &&
                       std::all_of(scheme.begin(), scheme.end(), [](char character) {
                         return g_ascii_isalnum(character) || character == '+' ||
                                character == '-' || character == '.';
                       });
  if (!isValid) return {};
  std::transform(scheme.begin(), scheme.end(), scheme.begin(), g_ascii_tolower);
  return scheme;
}

GObjectPtr<GAppInfo> handlerOf(const Url& url) {
  const std::string& text = url.absoluteString();
  const std::string scheme = schemeOf(text);
  if (scheme.empty() || text.find('\0') != std::string::npos) return nullptr;
  if (scheme == "file") {
    const GObjectPtr<GFile> file(g_file_new_for_path(url.path().c_str()));
    return GObjectPtr<GAppInfo>(g_file_query_default_handler(file.get(), nullptr, nullptr));
  }
  return GObjectPtr<GAppInfo>(g_app_info_get_default_for_uri_scheme(scheme.c_str()));
}

std::string stringOf(GCharPtr text) {
  return text == nullptr ? std::string() : std::string(text.get());
}

void logOpeningFailure(const Url& url, const std::string& why) {
  log("Could not open " + url.absoluteString() + ": " + why);
}

struct StartedHandler {
  pid_t pid;
  // Readable once the process has ended.
  Descriptor pidDescriptor;
};

gboolean reapHandler(gint /*descriptor*/, GIOCondition /*condition*/, gpointer data) {
  waitpid(static_cast<StartedHandler*>(data)->pid, nullptr, 0);
  return G_SOURCE_REMOVE;
}

// Starts the program of an Exec line and reaps it on `context`. Answers errno.
int spawnHandler(const std::vector<std::string>& arguments, const std::string& folder,
                 GMainContext* context) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  // Whoever reads what this process writes must not wait for the handler's end; its log stays.
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  // The handler outlives this process and its terminal's signals, and starts with none blocked.
  sigset_t none;
  sigset_t defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  pid_t pid = 0;
  const int failure = posix_spawnp(&pid, argv.front(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) return failure;

  Descriptor pidDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (!pidDescriptor) {
    std::thread([pid] { waitpid(pid, nullptr, 0); }).detach();
    return 0;
  }
  GSource* source = g_unix_fd_source_new(pidDescriptor.get(), G_IO_IN);
  g_source_set_callback(source, G_SOURCE_FUNC(reapHandler),
                        new StartedHandler{pid, std::move(pidDescriptor)},
                        [](gpointer data) { delete static_cast<StartedHandler*>(data); });
  g_source_attach(source, context);
  g_source_unref(source);
  return 0;
}

// Without D-Bus activation. Bus thread.
void startHandler(GDesktopAppInfo* handler, const Url& url, GMainContext* context) {
  const std::string exec = stringOf(GCharPtr(g_desktop_app_info_get_string(handler, "Exec")));
  if (g_desktop_app_info_get_boolean(handler, "Terminal")) {
    GList uris{const_cast<char*>(url.absoluteString().c_str()), nullptr, nullptr};
    GError* failure = nullptr;
    if (!g_app_info_launch_uris(G_APP_INFO(handler), &uris, nullptr, &failure)) {
      const GErrorPtr error(failure);
      logOpeningFailure(url, error->message);
    }
    return;
  }
  const char* path = g_desktop_app_info_get_filename(handler);
  const auto arguments =
      expandedExec(exec,
                   {stringOf(GCharPtr(g_desktop_app_info_get_string(handler, "Icon"))),
                    g_app_info_get_name(G_APP_INFO(handler)), path == nullptr ? "" : path},
                   url);
  if (arguments.empty()) {
    logOpeningFailure(url, "its handler has no usable command line");
    return;
  }
  const std::string folder = stringOf(GCharPtr(g_desktop_app_info_get_string(handler, "Path")));
  if (const int failure = spawnHandler(arguments, folder, context); failure != 0) {
    logOpeningFailure(url, posixError(failure, arguments.front()).message);
  }
}

// The bus name of a handler that is started through the bus, else empty.
std::string activatableName(GDesktopAppInfo* handler) {
  const char* identifier = g_app_info_get_id(G_APP_INFO(handler));
  if (identifier == nullptr || !g_desktop_app_info_get_boolean(handler, "DBusActivatable")) {
    return {};
  }
  std::string name = identifier;
  constexpr std::string_view kSuffix = ".desktop";
  if (!name.ends_with(kSuffix)) return {};
  name.resize(name.size() - kSuffix.size());
  return g_dbus_is_name(name.c_str()) && !g_dbus_is_unique_name(name.c_str()) ? name
                                                                              : std::string();
}

// The object path of an application: its name with slashes, and "_" for the "-" that a path
// cannot hold.
std::string applicationPath(const std::string& name) {
  std::string path = "/" + name;
  std::replace(path.begin(), path.end(), '.', '/');
  std::replace(path.begin(), path.end(), '-', '_');
  return path;
}

// Whether a call that failed cannot have reached anybody: the bus is not there, or nobody could be
// started by it. Only then may the request be made again in another way.
bool wasNotDelivered(const GError& error) {
  if (error.domain == G_DBUS_ERROR) {
    return error.code == G_DBUS_ERROR_SERVICE_UNKNOWN ||
           error.code == G_DBUS_ERROR_NAME_HAS_NO_OWNER ||
           (error.code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
            error.code <= G_DBUS_ERROR_SPAWN_NO_MEMORY);
  }
  return g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_NOT_CONNECTED) != FALSE;
}

void mountsChanged(GUnixMountMonitor* /*monitor*/, gpointer handler) {
  guarded("a change of the mounts",
          [handler] { (*static_cast<std::function<void()>*>(handler))(); });
}

}  // namespace

std::vector<std::string> expandedExec(const std::string& exec, const DesktopEntryNames& names,
                                      const Url& url) {
  gint count = 0;
  gchar** words = nullptr;
  if (!g_shell_parse_argv(exec.c_str(), &count, &words, nullptr)) return {};
  const std::unique_ptr<gchar*, decltype(&g_strfreev)> owner(words, g_strfreev);
  std::vector<std::string> arguments;
  bool namesUrl = false;
  for (gint i = 0; i < count; ++i) {
    const std::string_view word = words[i];
    if (word == "%i") {
      if (!names.icon.empty()) arguments.insert(arguments.end(), {"--icon", names.icon});
      continue;
    }
    std::string argument;
    bool vanished = false;
    for (std::size_t at = 0; at < word.size(); ++at) {
      if (word[at] != '%') {
        argument += word[at];
        continue;
      }
      if (++at == word.size()) return {};
      switch (word[at]) {
        case '%':
          argument += '%';
          break;
        case 'u':
        case 'U':
          argument += url.absoluteString();
          namesUrl = true;
          break;
        case 'f':
        case 'F':
          argument += url.isFileURL() ? url.path() : url.absoluteString();
          namesUrl = true;
          break;
        case 'c':
          argument += names.name;
          break;
        case 'k':
          argument += names.path;
          break;
        default:
          // Deprecated codes stand for nothing.
          vanished = word.size() == 2;
          break;
      }
    }
    if (!vanished) arguments.push_back(std::move(argument));
  }
  if (!arguments.empty() && !namesUrl) {
    arguments.push_back(url.isFileURL() ? url.path() : url.absoluteString());
  }
  return arguments;
}

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

GioWorkspace::~GioWorkspace() {
  if (mountMonitor_ != nullptr) {
    g_signal_handler_disconnect(mountMonitor_.get(), mountMonitorHandler_);
  }
}

bool GioWorkspace::openURL(const Url& url) {
  const std::shared_ptr<GAppInfo> handler = handlerOf(url);
  if (handler == nullptr) return false;
  ++pendingRequests_;
  bus_.post([this, handler, url] {
    if (!G_IS_DESKTOP_APP_INFO(handler.get())) {
      logOpeningFailure(url, "its handler is no desktop entry");
      --pendingRequests_;
      return;
    }
    GDesktopAppInfo* entry = G_DESKTOP_APP_INFO(handler.get());
    const std::string name = activatableName(entry);
    if (name.empty() || !sessionBusAddress()) {
      startHandler(entry, url, bus_.context());
      --pendingRequests_;
      return;
    }
    const gchar* uris[] = {url.absoluteString().c_str()};
    bus_.call(name, applicationPath(name), "org.freedesktop.Application", "Open",
              g_variant_new("(@as@a{sv})", g_variant_new_strv(uris, 1),
                            g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0)),
              kReplyTimeoutMilliseconds,
              [this, handler, url](GVariant* /*reply*/, const GError* error) {
                if (error != nullptr && wasNotDelivered(*error)) {
                  logOpeningFailure(url, std::string(error->message) +
                                             "; the handler's command line is used instead");
                  startHandler(G_DESKTOP_APP_INFO(handler.get()), url, bus_.context());
                } else if (error != nullptr) {
                  logOpeningFailure(url, error->message);
                }
                --pendingRequests_;
              });
  });
  return true;
}

void GioWorkspace::activateFileViewerSelectingURLs(const std::vector<Url>& urls) {
  if (urls.empty()) return;
  ++pendingRequests_;
  bus_.post([this, urls] {
    GVariantBuilder uris;
    g_variant_builder_init(&uris, G_VARIANT_TYPE("as"));
    for (const auto& url : urls) {
      const std::string& text = url.absoluteString();
      if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        g_variant_builder_add(&uris, "s", text.c_str());
      }
    }
    bus_.call("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
              "org.freedesktop.FileManager1", "ShowItems",
              g_variant_new("(@ass)", g_variant_builder_end(&uris), ""), kReplyTimeoutMilliseconds,
              [this](GVariant* /*reply*/, const GError* error) {
                if (error != nullptr) {
                  log(std::string("Could not show the files: ") + error->message);
                }
                --pendingRequests_;
              });
  });
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
