#include "tests/support/temporary_home.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tervano::test {

TemporaryHome::TemporaryHome() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tervano-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = pattern;
  for (const std::string& folder :
       {dataHome(), configHome(), path_ + "/.cache", path_ + "/.local/state", path_ + "/tmp"}) {
    std::filesystem::create_directories(folder);
  }
  mkdir(runtimeFolder().c_str(), 0700);
  setVariable("HOME", path_);
  setVariable("XDG_DATA_HOME", dataHome());
  setVariable("XDG_CONFIG_HOME", configHome());
  setVariable("XDG_CACHE_HOME", path_ + "/.cache");
  setVariable("XDG_STATE_HOME", path_ + "/.local/state");
  setVariable("XDG_RUNTIME_DIR", runtimeFolder());
  setVariable("TMPDIR", path_ + "/tmp");
}

TemporaryHome::~TemporaryHome() {
  for (const auto& [name, value] : previous_) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void TemporaryHome::setVariable(const std::string& name, const std::optional<std::string>& value) {
  const char* const before = std::getenv(name.c_str());
  previous_.try_emplace(name,
                        before == nullptr ? std::nullopt : std::optional<std::string>(before));
  if (value) {
    setenv(name.c_str(), value->c_str(), 1);
  } else {
    unsetenv(name.c_str());
  }
}

}  // namespace tervano::test
