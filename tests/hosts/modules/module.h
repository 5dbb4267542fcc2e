#pragma once

#include <glib-object.h>

#include <string>

namespace tervano::test {

// The built module, loaded as its file manager loads it: looked up by its three entry functions,
// registered with a type module, its provider made. In use from the constructor to the destructor,
// which unloads it. Main thread.
class Module {
 public:
  Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  ~Module();

  // A new object of the only type that the module lists; the caller owns it. Null when it lists
  // none.
  GObject* newProvider() const;

  static std::string path();
  // The libraries that the process has loaded, as paths, one a line.
  static std::string loadedLibraries();

 private:
  GTypeModule* module_;
};

}  // namespace tervano::test
