#include "extension/selection_filter.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iterator>
#include <unordered_set>

#include "platform/file_manager.h"
#include "platform/platform.h"
#include "platform/uniform_types.h"

namespace tervano {
namespace {

bool isLocal(const Url& url) {
  constexpr std::string_view kLocalRoot = "file:///";
  const std::string& text = url.absoluteString();
  // A comparison of known length is a few instructions, and this is asked of every item.
  return (text.size() >= kLocalRoot.size() &&
          std::memcmp(text.data(), kLocalRoot.data(), kLocalRoot.size()) == 0) ||
         !url.path().empty();
}

// Gathers the distinct extensions of many items without copying names.
class ExtensionCollector {
 public:
  // The item's extension, empty when it has none.
  std::string_view extensionOf(const Url& url) {
    std::string_view text = url.absoluteString();
    if (text.find('?') != std::string_view::npos || text.find('#') != std::string_view::npos) {
      return decoded(url);
    }
    while (text.ends_with('/')) text.remove_suffix(1);
    // Backwards to whatever ends the extension or the name.
    std::size_t begin = text.size();
    while (begin > 0 && text[begin - 1] != '.' && text[begin - 1] != '/') {
      // A dot may be escaped as well, but only behind the last plain one does that matter.
      if (text[--begin] == '%') return decoded(url);
    }
    const bool hasExtension =
        begin > 1 && begin < text.size() && text[begin - 1] == '.' && text[begin - 2] != '/';
    return hasExtension ? text.substr(begin) : std::string_view();
  }
  void add(std::string_view extension) {
    // A large selection has few extensions: most items only find theirs among the recent ones.
    if (extension.size() >= sizeof(std::uint64_t)) {
      extensions_.insert(extension);
      return;
    }
    std::uint64_t bytes = extension.size();
    for (const char character : extension) {
      bytes = bytes << 8 | static_cast<unsigned char>(character);
    }
    std::uint64_t& recent = recent_[bytes % recent_.size()];
    if (recent == bytes) return;
    recent = bytes;
    extensions_.insert(extension);
  }
  const std::unordered_set<std::string_view>& extensions() const { return extensions_; }

 private:
  std::string_view decoded(const Url& url) {
    std::string extension = pathExtension(url.lastPathComponent());
    if (extension.empty()) return {};
    return decoded_.emplace_back(std::move(extension));
  }

  // The length and the bytes of short extensions, each at its own place; 0 where there is none.
  std::array<std::uint64_t, 61> recent_{};
  std::unordered_set<std::string_view> extensions_;
  // A deque, for the views must stay valid.
  std::deque<std::string> decoded_;
};

bool conforms(const std::string& UTI, const std::string& type) {
  return platform().uniformTypes->conformsTo(UTI, type);
}

}  // namespace

bool hasLocalItem(const SelectedItems& items) {
  return std::any_of(items.begin(), items.end(),
                     [](const SelectedItem& item) { return isLocal(item.url); });
}

std::vector<std::string> typesOfItems(const SelectedItems& items) {
  ExtensionCollector collector;
  bool hasFolder = false;
  bool hasFile = false;
  for (const SelectedItem& item : items) {
    if (!isLocal(item.url)) continue;
    const std::string_view extension = collector.extensionOf(item.url);
    if (!extension.empty()) {
      collector.add(extension);
    } else if (!hasFolder || !hasFile) {
      const bool isFolder = item.isDirectory
                                ? *item.isDirectory
                                : platform().fileManager->isDirectoryAtPath(item.url.path());
      (isFolder ? hasFolder : hasFile) = true;
    }
  }
  const UniformTypes& uniformTypes = *platform().uniformTypes;
  std::unordered_set<std::string> types;
  if (hasFolder) types.insert(kUTTypeFolder);
  if (hasFile) types.insert(uniformTypes.preferredIdentifierForExtension(""));
  for (const std::string_view extension : collector.extensions()) {
    types.insert(uniformTypes.preferredIdentifierForExtension(extension));
  }
  return {types.begin(), types.end()};
}

bool SelectionFilter::accepts(const std::optional<std::vector<std::string>>& fileTypes) {
  if (!fileTypes) return true;
  return !UTIs_.empty() && std::all_of(fileTypes->begin(), fileTypes->end(),
                                       [this](const auto& type) { return allConformTo(type); });
}

std::vector<UnmetType> SelectionFilter::unmetTypes(
    const std::vector<std::string>& fileTypes) const {
  std::vector<UnmetType> unmet;
  for (const auto& type : fileTypes) {
    UnmetType candidate{type, {}};
    std::copy_if(UTIs_.begin(), UTIs_.end(), std::back_inserter(candidate.UTIs),
                 [&type](const auto& UTI) { return !conforms(UTI, type); });
    if (!candidate.UTIs.empty()) unmet.push_back(std::move(candidate));
  }
  return unmet;
}

bool SelectionFilter::allConformTo(const std::string& type) {
  const auto [known, isNew] = conformance_.try_emplace(type, true);
  if (isNew) {
    known->second = std::all_of(UTIs_.begin(), UTIs_.end(),
                                [&type](const auto& UTI) { return conforms(UTI, type); });
  }
  return known->second;
}

}  // namespace tervano
