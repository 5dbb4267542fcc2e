#pragma once

#include <mutex>
#include <string>

#include "platform/applications.h"
#include "platform/linux/appimages/squashfs_entries.h"

namespace tervano {

// Applications as a Linux desktop has them:
// - a desktop entry of Type=Application: its desktop-file id without ".desktop", by the Desktop
//   Entry Specification in an application folder, elsewhere by the file's name;
// - an executable AppImage: the id of the entry inside it, else of the user's installed entry that
//   starts it;
// - a folder "*.app" with Contents/Info.plist, else Info.plist, binary or XML: the string under
//   "CFBundleIdentifier".
//
// An identifier that is empty, longer than kLongestIdentifier bytes, no valid UTF-8, or holds a
// control character, U+FFFD or "/" is none. Symbolic links are followed. What lies inside an
// AppImage is read by the module "appimages.so", loaded at the first one; one line is logged when
// it is missing.
class DesktopApplications : public Applications {
 public:
  static constexpr std::size_t kLongestIdentifier = 255;

  // Empty: the module of this installation.
  explicit DesktopApplications(std::string modulePath = {}) : modulePath_(std::move(modulePath)) {}

  std::optional<std::string> bundleIdentifierAtPath(const std::string& path) const override;
  std::optional<std::string> displayNameAtPath(const std::string& path) const override;

 private:
  // Null without the module.
  SquashfsEntries* squashfsEntries() const;

  std::string modulePath_;
  mutable std::once_flag loaded_;
  mutable SquashfsEntries* squashfsEntries_ = nullptr;
};

}  // namespace tervano
