#pragma once

#include <optional>
#include <string>

namespace tervano {

// Applications as bundles: desktop entries, AppImages and "*.app" folders. Reads files; any thread.
class Applications {
 public:
  virtual ~Applications() = default;
  // The identifier of the application at that path: the desktop-file id of a desktop entry or an
  // AppImage's own entry, or "CFBundleIdentifier" of a folder bundle's information list. Nil when
  // the path is no bundle or names none.
  virtual std::optional<std::string> bundleIdentifierAtPath(const std::string& path) const = 0;
  // The application's name for people, from its desktop entry or information list; nil when it has
  // none.
  virtual std::optional<std::string> displayNameAtPath(const std::string& path) const = 0;
};

class ForwardingApplications : public Applications {
 public:
  explicit ForwardingApplications(Applications& real) : real_(real) {}
  std::optional<std::string> bundleIdentifierAtPath(const std::string& path) const override {
    return real_.bundleIdentifierAtPath(path);
  }
  std::optional<std::string> displayNameAtPath(const std::string& path) const override {
    return real_.displayNameAtPath(path);
  }

 private:
  Applications& real_;
};

}  // namespace tervano
