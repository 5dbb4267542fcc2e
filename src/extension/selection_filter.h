#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "extension/fi_finder_sync_controller.h"

namespace tervano {

// Whether any of the items is a file of this machine, as far as its URL tells.
bool hasLocalItem(const SelectedItems& items);

// The uniform types of the local items among these, each once, in no defined order. A folder
// without an extension is a folder; everything else is typed by its extension. Asks the disk only
// about items without an extension of which it is not known whether they are folders.
std::vector<std::string> typesOfItems(const SelectedItems& items);

// A type of an action's filter and the types of the selection that do not conform to it.
struct UnmetType {
  std::string type;
  std::vector<std::string> UTIs;

  friend bool operator==(const UnmetType&, const UnmetType&) = default;
};

// The filter rule for one selection: remembers each type that it was asked about, so that a list of
// many actions with the same file types costs one look-up each.
class SelectionFilter {
 public:
  explicit SelectionFilter(std::vector<std::string> UTIs) : UTIs_(std::move(UTIs)) {}

  // Nil accepts any selection, otherwise every item must conform to every type, and there must be
  // one. The types must outlive this object.
  bool accepts(const std::optional<std::vector<std::string>>& fileTypes);
  // Each of the types that not every item conforms to, in their order. Not for menus: it looks at
  // everything again.
  std::vector<UnmetType> unmetTypes(const std::vector<std::string>& fileTypes) const;

 private:
  bool allConformTo(const std::string& type);

  std::vector<std::string> UTIs_;
  std::unordered_map<std::string_view, bool> conformance_;
};

}  // namespace tervano
