#include "platform/linux/desktop_applications.h"

#include <dlfcn.h>

#include <filesystem>

#include "archive/url.h"
#include "archive/utf.h"
#include "platform/linux/app_image.h"
#include "platform/linux/desktop_entry.h"
#include "platform/linux/folder_bundle.h"
#include "platform/linux/installed_bundle.h"
#include "platform/log.h"

namespace tervano {

namespace {

constexpr char kAppImagesModule[] = "appimages.so";
// What readers of property lists put in the place of text that they cannot decode.
constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

enum class Kind { kNone, kDesktopEntry, kAppImage, kFolderBundle };

// By the name alone; a name that is all extension is none.
Kind kindOf(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension == ".desktop") return Kind::kDesktopEntry;
  if (g_ascii_strcasecmp(extension.c_str(), ".appimage") == 0) return Kind::kAppImage;
  if (g_ascii_strcasecmp(extension.c_str(), ".app") == 0) return Kind::kFolderBundle;
  return Kind::kNone;
}

// C0, DEL and C1.
bool hasControlCharacter(std::string_view text) {
  unsigned char previous = 0;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F || (previous == 0xC2 && byte >= 0x80 && byte < 0xA0)) {
      return true;
    }
    previous = byte;
  }
  return false;
}

bool isIdentifier(const std::string& text) {
  return !text.empty() && text.size() <= DesktopApplications::kLongestIdentifier &&
         isValidUtf8(text) && !hasControlCharacter(text) && text.find('/') == std::string::npos &&
         text.find(kReplacementCharacter) == std::string::npos;
}

}  // namespace

SquashfsEntries* DesktopApplications::squashfsEntries() const {
  std::call_once(loaded_, [this] {
    const std::string path = modulePath_.empty()
                                 ? InstalledBundle().pathForAuxiliaryExecutable(kAppImagesModule)
                                 : modulePath_;
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const entry = module == nullptr ? nullptr : dlsym(module, kSquashfsEntriesName);
    if (entry == nullptr) {
      const char* const why = dlerror();
      log(std::string("Could not load the AppImage library: ") + (why == nullptr ? path : why));
      return;
    }
    squashfsEntries_ = reinterpret_cast<SquashfsEntries*>(entry);
  });
  return squashfsEntries_;
}

std::optional<std::string> DesktopApplications::bundleIdentifierAtPath(
    const std::string& path) const {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  const std::string bundle(withoutTrailingSlashes(path));
  std::optional<std::string> identifier;
  switch (kindOf(bundle)) {
    case Kind::kDesktopEntry:
      if (DesktopEntry::atPath(bundle)) identifier = DesktopEntry::identifierAtPath(bundle);
      break;
    case Kind::kAppImage:
      identifier = identifierOfAppImage(bundle, squashfsEntries());
      break;
    case Kind::kFolderBundle:
      identifier = bundleInformation(bundle, "CFBundleIdentifier");
      break;
    case Kind::kNone:
      break;
  }
  if (identifier && !isIdentifier(*identifier)) return std::nullopt;
  return identifier;
}

std::optional<std::string> DesktopApplications::displayNameAtPath(const std::string& path) const {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  const std::string bundle(withoutTrailingSlashes(path));
  if (kindOf(bundle) == Kind::kDesktopEntry) {
    const auto entry = DesktopEntry::atPath(bundle);
    if (!entry) return std::nullopt;
    const auto fullName = entry->localeString("X-GNOME-FullName");
    return fullName ? fullName : entry->localeString(G_KEY_FILE_DESKTOP_KEY_NAME);
  }
  if (kindOf(bundle) != Kind::kFolderBundle) return std::nullopt;
  const auto displayName = bundleInformation(bundle, "CFBundleDisplayName");
  return displayName ? displayName : bundleInformation(bundle, "CFBundleName");
}

}  // namespace tervano
