#include "companion/explanation_text.h"

#include <algorithm>

#include "extension/selection_filter.h"
#include "platform/linux/uniform_type_table.h"
#include "platform/platform.h"
#include "platform/uniform_types.h"

namespace tervano {

void loadDesktopTypes() {
  static_cast<UniformTypeTable*>(platform().uniformTypes)->loadDesktopTypes();
}

TypedItems::TypedItems(const SelectedItems& items) {
  for (const auto& item : items) {
    const auto types = typesOfItems({item});
    if (!types.empty()) items_.emplace_back(item.url.path(), types.front());
  }
}

std::vector<std::string> TypedItems::pathsOfTypes(const std::vector<std::string>& types) const {
  std::vector<std::string> paths;
  for (const auto& [path, type] : items_) {
    if (std::find(types.begin(), types.end(), type) != types.end()) paths.push_back(path);
  }
  return paths;
}

std::string TypedItems::typeOf(const std::string& path) const {
  return std::find_if(items_.begin(), items_.end(),
                      [&](const auto& item) { return item.first == path; })
      ->second;
}

namespace {

// More names than this are only counted in a sentence.
constexpr std::size_t kNamedItems = 3;

// "a.txt (public.plain-text), b.c (public.c-source) and 7 more".
Sentence namesOf(const std::vector<std::string>& paths, const TypedItems& items) {
  std::string text;
  for (std::size_t i = 0; i < std::min(paths.size(), kNamedItems); ++i) {
    text += (i == 0 ? "" : ", ") + Url::fileURLWithPath(paths[i]).lastPathComponent() + " (" +
            items.typeOf(paths[i]) + ")";
  }
  if (paths.size() <= kNamedItems) return text;
  return trn("{2} and one more", "{2} and {1} more", paths.size() - kNamedItems, text);
}

Sentence sentenceOfUnmet(const UnmetType& unmet, const TypedItems& items) {
  const Sentence names = namesOf(items.pathsOfTypes(unmet.UTIs), items);
  if (platform().uniformTypes->isDeclared(unmet.type)) {
    return tr("not {1}: {2}", unmet.type, names);
  }
  return tr("not {1}: {2}; the type {1} is not known here", unmet.type, names);
}

}  // namespace

Sentence sentenceOfExplanation(const Explanation& explanation, const TypedItems& items) {
  if (explanation.groupLeftOut) return tr("its group is not shown");
  if (!explanation.leftOut) return "";
  switch (*explanation.leftOut) {
    case LeftOut::disabled:
      return tr("it is disabled");
    case LeftOut::noMember:
      return tr("no member of the group is enabled");
    case LeftOut::fileTypes:
      break;
  }
  if (explanation.unmet.empty()) {
    return tr("nothing is selected, and it is for certain types only");
  }
  Sentence sentence;
  for (const auto& unmet : explanation.unmet) {
    if (!sentence.empty()) sentence += "; ";
    sentence += sentenceOfUnmet(unmet, items);
  }
  if (explanation.action->fileTypes()->size() > 1) {
    sentence += "; ";
    sentence += tr("every item must conform to every type that is listed");
  }
  return sentence;
}

}  // namespace tervano
