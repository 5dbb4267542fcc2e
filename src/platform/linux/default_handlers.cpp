#include "platform/linux/default_handlers.h"

#include <gio/gdesktopappinfo.h>

#include <algorithm>
#include <string_view>

#include "platform/linux/glib_handles.h"

namespace tervano {

namespace {

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

std::optional<std::string> entryPath(GAppInfo* application) {
  if (application == nullptr || !G_IS_DESKTOP_APP_INFO(application)) return std::nullopt;
  const char* path = g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(application));
  return path == nullptr ? std::nullopt : std::optional<std::string>(path);
}

}  // namespace

std::optional<std::string> handlerEntryOfURL(const Url& url) {
  const std::string& text = url.absoluteString();
  const std::string scheme = schemeOf(text);
  if (scheme.empty() || text.find('\0') != std::string::npos) return std::nullopt;
  GObjectPtr<GAppInfo> handler;
  if (scheme == "file") {
    const GObjectPtr<GFile> file(g_file_new_for_path(url.path().c_str()));
    handler.reset(g_file_query_default_handler(file.get(), nullptr, nullptr));
  } else {
    handler.reset(g_app_info_get_default_for_uri_scheme(scheme.c_str()));
  }
  return entryPath(handler.get());
}

std::optional<std::string> handlerEntryOfType(const std::string& type) {
  const GObjectPtr<GAppInfo> handler(g_app_info_get_default_for_type(type.c_str(), FALSE));
  return entryPath(handler.get());
}

std::optional<std::string> entryWithIdentifier(const std::string& identifier) {
  constexpr std::string_view kSuffix = ".desktop";
  if (identifier.empty() || identifier.find('\0') != std::string::npos) return std::nullopt;
  std::string name = identifier;
  if (!name.ends_with(kSuffix)) name += kSuffix;
  const GObjectPtr<GDesktopAppInfo> entry(g_desktop_app_info_new(name.c_str()));
  return entryPath(entry == nullptr ? nullptr : G_APP_INFO(entry.get()));
}

}  // namespace tervano
