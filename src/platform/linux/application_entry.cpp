#include "platform/linux/application_entry.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/desktop_entry.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/workspace_error.h"

namespace tervano {

namespace {

std::optional<ApplicationEntry> readEntry(const std::string& path, Error& why) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    why = posixError(errno, path);
    return std::nullopt;
  }
  const auto file = DesktopEntry::atPath(path);
  if (!file) {
    why = workspaceError("\"" + path + "\" is not the desktop entry of an application");
    return std::nullopt;
  }
  const auto program = file->string(G_KEY_FILE_DESKTOP_KEY_TRY_EXEC);
  if (program && GCharPtr(g_find_program_in_path(program->c_str())) == nullptr) {
    why = workspaceError("The application of \"" + path + "\" is not installed: there is no \"" +
                         *program + "\"");
    return std::nullopt;
  }

  ApplicationEntry entry;
  entry.path = path;
  entry.identifier = DesktopEntry::identifierAtPath(path);
  entry.name = file->localeString(G_KEY_FILE_DESKTOP_KEY_NAME).value_or(entry.identifier);
  entry.icon = file->localeString(G_KEY_FILE_DESKTOP_KEY_ICON).value_or("");
  entry.exec = file->string(G_KEY_FILE_DESKTOP_KEY_EXEC).value_or("");
  entry.folder = file->string(G_KEY_FILE_DESKTOP_KEY_PATH).value_or("");
  entry.isHidden = file->boolean(G_KEY_FILE_DESKTOP_KEY_HIDDEN).value_or(false);
  entry.terminal = file->boolean(G_KEY_FILE_DESKTOP_KEY_TERMINAL).value_or(false);
  entry.isActivatable = file->boolean(G_KEY_FILE_DESKTOP_KEY_DBUS_ACTIVATABLE).value_or(false);
  const std::string categories =
      ";" + file->string(G_KEY_FILE_DESKTOP_KEY_CATEGORIES).value_or("") + ";";
  entry.isBrowser = categories.find(";WebBrowser;") != std::string::npos &&
                    categories.find(";Email;") == std::string::npos;
  entry.takesActivationToken = file->boolean(G_KEY_FILE_DESKTOP_KEY_STARTUP_NOTIFY).value_or(true);
  return entry;
}

}  // namespace

std::string ApplicationEntry::busName() const {
  const bool isName = isActivatable && g_dbus_is_name(identifier.c_str()) &&
                      !g_dbus_is_unique_name(identifier.c_str());
  return isName ? identifier : std::string();
}

std::optional<ExecLine> ApplicationEntry::execLine() const {
  return ExecLine::parse(exec, {icon, name, path});
}

std::optional<ApplicationEntry> applicationEntryAtPath(const std::string& path,
                                                       std::optional<Error>* error) {
  Error why;
  auto entry = readEntry(path, why);
  if (!entry && error != nullptr) *error = why;
  return entry;
}

}  // namespace tervano
