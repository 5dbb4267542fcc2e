#include "tools/defaults/domain_settings.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "tools/defaults/domain.h"

namespace tervano {

namespace {

bool isOwnTree(const std::string& path) {
  constexpr auto kFewestSlashes = static_cast<std::ptrdiff_t>(kFewestParts) + 1;
  const auto slashes = std::count(path.begin(), path.end(), '/');
  return slashes >= kFewestSlashes || (slashes == kFewestSlashes - 1 && path.starts_with("/apps/"));
}

class Search {
 public:
  Search(const std::string& domain, const std::vector<SettingsSchema>& schemas,
         const SettingsDatabase& database)
      : domain_(domain), schemas_(schemas), database_(database) {}

  DomainSettings settings() {
    std::set<std::string> trees = foldersOfName();
    for (const auto& schema : schemas_) {
      if (!domainOwnsSchema(domain_, schema.identifier)) continue;
      found_.isKnown = true;
      if (schema.path.empty()) continue;
      if (isOwnTree(schema.path)) trees.insert(schema.path);
      for (const auto& name : schema.keys()) add(schema.path + name);
    }
    for (const auto& tree : trees) searchTree(tree);
    return std::move(found_);
  }

 private:
  // The folders that the parts of the domain's name lead to.
  std::set<std::string> foldersOfName() const {
    std::set<std::string> folders{"/"};
    for (const auto& part : partsOfDomain(domain_)) {
      std::set<std::string> deeper;
      for (const auto& folder : folders) {
        for (const auto& name : database_.contentsOf(folder)) {
          if (isEqualWithoutCase(name, part + "/")) deeper.insert(folder + name);
        }
      }
      folders = std::move(deeper);
    }
    return folders;
  }

  void searchTree(const std::string& tree) {
    std::vector<std::string> pending{tree};
    while (!pending.empty()) {
      const std::string folder = std::move(pending.back());
      pending.pop_back();
      const auto owners = ownersOf(folder, tree);
      for (const auto& name : database_.contentsOf(folder)) {
        if (name.ends_with('/')) {
          pending.push_back(folder + name);
        } else if (isOwn(name, folder, owners)) {
          found_.isKnown = true;
          add(folder + name);
        }
      }
    }
  }

  // The schemas with the longest path at or below `tree` that the folder lies at or below.
  std::vector<const SettingsSchema*> ownersOf(const std::string& folder,
                                              const std::string& tree) const {
    std::vector<const SettingsSchema*> owners;
    std::size_t longest = tree.size();
    for (const auto& schema : schemas_) {
      if (schema.path.size() < longest || !folder.starts_with(schema.path)) continue;
      if (schema.path.size() > longest) owners.clear();
      longest = schema.path.size();
      owners.push_back(&schema);
    }
    return owners;
  }

  bool isOwn(const std::string& name, const std::string& folder,
             const std::vector<const SettingsSchema*>& owners) const {
    if (owners.empty()) return true;
    bool hasOwnSchema = false;
    bool isDeclaredElsewhere = false;
    for (const auto* schema : owners) {
      const bool declares = schema->path == folder && schema->declares(name);
      if (domainOwnsSchema(domain_, schema->identifier)) {
        if (declares) return true;
        hasOwnSchema = true;
      } else if (declares) {
        isDeclaredElsewhere = true;
      }
    }
    return hasOwnSchema && !isDeclaredElsewhere;
  }

  void add(const std::string& key) {
    GVariantPtr value = database_.userValue(key);
    if (value == nullptr) return;
    if (database_.isWritable(key)) {
      found_.resettable.insert_or_assign(key, std::move(value));
    } else if (std::find(found_.locked.begin(), found_.locked.end(), key) == found_.locked.end()) {
      found_.locked.push_back(key);
    }
  }

  const std::string& domain_;
  const std::vector<SettingsSchema>& schemas_;
  const SettingsDatabase& database_;
  DomainSettings found_;
};

}  // namespace

DomainSettings settingsOfDomain(const std::string& domain,
                                const std::vector<SettingsSchema>& schemas,
                                const SettingsDatabase& database) {
  return Search(domain, schemas, database).settings();
}

}  // namespace tervano
