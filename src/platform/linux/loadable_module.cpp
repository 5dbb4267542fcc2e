#include "platform/linux/loadable_module.h"

#include <dlfcn.h>

namespace tervano {

std::string whyModuleIsUnusable(const std::string& path, const std::vector<std::string>& entries) {
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    const char* why = dlerror();
    return why == nullptr ? path + " cannot be loaded" : why;
  }
  for (const auto& entry : entries) {
    if (dlsym(module, entry.c_str()) != nullptr) continue;
    return std::string(path).append(" lacks the function ").append(entry);
  }
  return "";
}

}  // namespace tervano
