#pragma once

#include <memory>
#include <string>
#include <vector>

#include "archive/coding.h"

namespace tervano {

// Makes the action base class, the groups and images known to an archive's reader and writer.
void registerModelClasses(ClassRegistry& registry);

// Makes one more action class known. `chain` runs from the class itself to the class before
// "TVAction".
template <typename T>
void registerActionClass(ClassRegistry& registry, std::vector<std::string> chain) {
  chain.emplace_back("TVAction");
  chain.emplace_back("NSObject");
  registry.registerClass(std::move(chain), [] { return std::make_shared<T>(); });
}

}  // namespace tervano
