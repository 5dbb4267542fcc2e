#include "platform/linux/uniform_type_table.h"

#include <algorithm>
#include <array>

#include "platform/linux/desktop_types.h"
#include "platform/linux/uniform_type_index.h"

namespace tervano {

namespace {

constexpr std::string_view kDynamicPrefix = "dyn.a";
constexpr std::string_view kDataType = "public.data";
constexpr std::string_view kItemType = "public.item";

constexpr char lowerCaseLetter(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool isDynamic(std::string_view identifier) {
  return identifier.starts_with(kDynamicPrefix);
}

}  // namespace

std::string dynamicIdentifierForExtension(std::string_view extension) {
  constexpr std::string_view kDigits = "0123456789abcdefghijklmnopqrstuv";
  constexpr unsigned kDigitBits = 5;
  std::string identifier(kDynamicPrefix);
  unsigned bits = 0;
  unsigned count = 0;
  for (const char character : extension) {
    bits = bits << 8 | static_cast<unsigned char>(lowerCaseLetter(character));
    count += 8;
    while (count >= kDigitBits) {
      count -= kDigitBits;
      identifier += kDigits[bits >> count & 31];
    }
    bits &= (1U << count) - 1;
  }
  if (count > 0) identifier += kDigits[bits << (kDigitBits - count) & 31];
  return identifier;
}

UniformTypeTable::UniformTypeTable() = default;
UniformTypeTable::~UniformTypeTable() = default;

void UniformTypeTable::loadDesktopTypes() {
  std::call_once(loaded_, [this] {
    desktopTypesOwner_ = std::make_unique<const DesktopTypes>(DesktopTypes::read());
    desktopTypes_.store(desktopTypesOwner_.get(), std::memory_order_release);
  });
}

std::string UniformTypeTable::preferredIdentifierForExtension(std::string_view extension) const {
  std::array<char, kLongestUniformTypeExtension> buffer;
  if (extension.size() <= buffer.size()) {
    std::transform(extension.begin(), extension.end(), buffer.begin(), lowerCaseLetter);
    const auto type = kUniformTypesByExtension.find({buffer.data(), extension.size()});
    if (type != kNoUniformType) return std::string(kUniformTypes[type].identifier);
  }
  if (const auto* desktop = desktopTypes_.load(std::memory_order_acquire)) {
    std::string lower(extension);
    std::transform(lower.begin(), lower.end(), lower.begin(), lowerCaseLetter);
    if (const auto* identifier = desktop->identifierForExtension(lower)) return *identifier;
  }
  return dynamicIdentifierForExtension(extension);
}

bool UniformTypeTable::conformsTo(std::string_view identifier, std::string_view type) const {
  if (identifier == type) return true;
  const auto target = kUniformTypesByIdentifier.find(type);
  const auto source = kUniformTypesByIdentifier.find(identifier);
  if (source != kNoUniformType) {
    return target != kNoUniformType && kUniformTypeConformance[source].contains(target);
  }
  if (isDynamic(identifier)) return type == kDataType || type == kItemType;
  const auto* desktop = desktopTypes_.load(std::memory_order_acquire);
  const auto* declared = desktop == nullptr ? nullptr : desktop->typeWithIdentifier(identifier);
  if (declared == nullptr) return false;
  if (target != kNoUniformType) return declared->builtIn.contains(target);
  return std::find(declared->others.begin(), declared->others.end(), type) !=
         declared->others.end();
}

std::vector<std::string> UniformTypeTable::conformanceOf(std::string_view identifier) const {
  const auto* desktop = desktopTypes_.load(std::memory_order_acquire);
  std::vector<std::string> found{std::string(identifier)};
  const auto add = [&found](std::string_view type) {
    if (std::find(found.begin(), found.end(), type) == found.end()) found.emplace_back(type);
  };
  for (std::size_t i = 0; i < found.size(); ++i) {
    const std::string next = found[i];
    const auto type = kUniformTypesByIdentifier.find(next);
    if (type != kNoUniformType) {
      auto parents = kUniformTypes[type].parents;
      while (!parents.empty()) add(nextWord(parents));
    } else if (isDynamic(next)) {
      add(kDataType);
    } else if (const auto* declared =
                   desktop == nullptr ? nullptr : desktop->typeWithIdentifier(next)) {
      for (const auto& parent : declared->parents) add(parent);
    }
  }
  return found;
}

bool UniformTypeTable::isDeclared(std::string_view identifier) const {
  if (kUniformTypesByIdentifier.find(identifier) != kNoUniformType || isDynamic(identifier)) {
    return true;
  }
  const auto* desktop = desktopTypes_.load(std::memory_order_acquire);
  return desktop != nullptr && desktop->typeWithIdentifier(identifier) != nullptr;
}

}  // namespace tervano
