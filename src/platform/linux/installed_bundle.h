#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "platform/bundle.h"

namespace tervano {

// Resources by the place of the running code: the program, or the loadable module that this code is
// part of. The nearest folder above it that has a "share/tervano" is the prefix (a build tree,
// /usr, /usr/local), and the programs of our own stand in its "libexec/tervano". Where no folder
// above has one (a module bound into another place), the build tree that the code came from is used
// while it exists, else /usr. Looked for once, at the first use.
class InstalledBundle : public Bundle {
 public:
  InstalledBundle() = default;
  // As if the running code were that file.
  explicit InstalledBundle(std::string codePath) : codePath_(std::move(codePath)) {}

  const std::string& resourcePath() const override { return places().resources; }
  // `name` may lead into a folder of the resources, never out of them.
  std::optional<std::string> pathForResource(const std::string& name,
                                             const std::string& type) const override;
  std::optional<std::string> pathForResource(const std::string& name, const std::string& type,
                                             const std::string& subdirectory) const override;
  std::optional<std::string> pathForImageNamed(const std::string& name) const override;
  std::string pathForAuxiliaryExecutable(const std::string& name) const override;

 private:
  struct Places {
    std::string resources;
    std::string auxiliaryExecutables;
  };
  const Places& places() const;

  // Empty: that of the running code.
  std::string codePath_;
  mutable std::once_flag placesFound_;
  mutable Places places_;
};

// The file of the loadable module that contains this code, or of the running program.
std::string pathOfRunningCode();

}  // namespace tervano
