#include "tools/images/converter.h"

#include <dlfcn.h>

namespace tervano {

const PictureConverter* loadConverter(const char* module, std::string& reason) {
  // The program's own folder is its run path.
  void* const loaded = dlopen(module, RTLD_NOW | RTLD_LOCAL);
  void* const entry = loaded == nullptr ? nullptr : dlsym(loaded, kConverterEntryPoint);
  if (entry == nullptr) {
    const char* const why = dlerror();
    reason =
        std::string("the picture library could not be loaded: ") + (why == nullptr ? module : why);
    return nullptr;
  }
  return reinterpret_cast<ConverterEntryPoint>(entry)();
}

}  // namespace tervano
