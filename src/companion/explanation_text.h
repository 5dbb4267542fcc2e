#pragma once

#include <string>
#include <utility>
#include <vector>

#include "extension/explanation.h"
#include "extension/fi_finder_sync_controller.h"
#include "translation/translation.h"

namespace tervano {

// The desktop's own types, which a companion knows besides the built-in ones. Blocking.
void loadDesktopTypes();

// What the items of a selection are.
class TypedItems {
 public:
  explicit TypedItems(const SelectedItems& items);

  // Path and type of each, in the order of the selection.
  const std::vector<std::pair<std::string, std::string>>& all() const { return items_; }
  std::vector<std::string> pathsOfTypes(const std::vector<std::string>& types) const;
  // Of an item of the selection.
  std::string typeOf(const std::string& path) const;

 private:
  std::vector<std::pair<std::string, std::string>> items_;
};

// Why a menu leaves the action out, as a part of a sentence; empty for one that is shown.
Sentence sentenceOfExplanation(const Explanation& explanation, const TypedItems& items);

}  // namespace tervano
