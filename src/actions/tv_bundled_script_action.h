#pragma once

#include <type_traits>

#include "actions/tv_shell_script_action.h"

namespace tervano {

// A script of the product's own, whose settings the user cannot edit; it is archived and run as any
// shell script.
class TVBundledScriptAction : public TVShellScriptAction {
 public:
  // A new action of class T for the script `fileName`.sh of the resource folder "Default Scripts",
  // with the name as its title, the image of that name as its icon when there is one, and the text
  // that the resource list "BundledDescriptions" has for the name. Null, and one line in the log,
  // when there is no such script. Blocking.
  template <typename T = TVBundledScriptAction>
  static std::shared_ptr<T> actionWithBundledFileName(const std::string& fileName) {
    static_assert(std::is_base_of_v<TVBundledScriptAction, T>);
    const auto path = pathForBundledFileName(fileName);
    if (!path) return nullptr;
    auto made = action<T>();
    made->takeBundledFile(fileName, *path);
    return made;
  }

  void init() override;
  // The one that was set, else that of any shell script.
  std::optional<std::string> defaultTitle() const override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVBundledScriptAction"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;

 private:
  static std::optional<std::string> pathForBundledFileName(const std::string& fileName);
  void takeBundledFile(const std::string& fileName, const std::string& path);
};

}  // namespace tervano
