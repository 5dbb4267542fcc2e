#include "archive/coding.h"

#include "archive/platform_exception.h"

namespace tervano {

void ClassRegistry::registerClass(std::vector<std::string> chain, Factory factory) {
  if (chain.empty()) {
    throw PlatformException(kInvalidArgumentException,
                            "a class without a name cannot be registered");
  }
  std::string name = chain.front();
  entries_.insert_or_assign(std::move(name), Entry{std::move(chain), std::move(factory)});
}

const std::vector<std::string>* ClassRegistry::chain(std::string_view className) const {
  const auto found = entries_.find(className);
  return found == entries_.end() ? nullptr : &found->second.chain;
}

std::shared_ptr<Coding> ClassRegistry::makeBlank(std::string_view className) const {
  const auto found = entries_.find(className);
  if (found == entries_.end() || !found->second.factory) return nullptr;
  return found->second.factory();
}

}  // namespace tervano
