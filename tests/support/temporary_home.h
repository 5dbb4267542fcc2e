#pragma once

#include <map>
#include <optional>
#include <string>

namespace tervano::test {

// A private home in a fresh folder, with every variable by which a program finds the user's
// folders pointing into it: HOME, XDG_DATA_HOME, XDG_CONFIG_HOME, XDG_CACHE_HOME, XDG_STATE_HOME,
// XDG_RUNTIME_DIR (0700), TMPDIR; XDG_DATA_DIRS and XDG_CONFIG_DIRS stay. The destructor removes
// the folder and puts the variables back. Child processes inherit it.
class TemporaryHome {
 public:
  TemporaryHome();
  TemporaryHome(const TemporaryHome&) = delete;
  TemporaryHome& operator=(const TemporaryHome&) = delete;
  ~TemporaryHome();

  // The home itself, also the place for a test's own files.
  const std::string& path() const { return path_; }
  std::string dataHome() const { return path_ + "/.local/share"; }
  std::string configHome() const { return path_ + "/.config"; }
  std::string runtimeFolder() const { return path_ + "/run"; }
  // Sets a variable (nil: unsets it) until the end of this home.
  void setVariable(const std::string& name, const std::optional<std::string>& value);

 private:
  std::string path_;
  std::map<std::string, std::optional<std::string>> previous_;
};

}  // namespace tervano::test
