#include "platform/apple_event.h"

#include <algorithm>

namespace tervano {

void AppleEventDescriptor::insertDescriptor(AppleEventDescriptor descriptor, std::size_t index) {
  auto* items = std::get_if<List>(&content_);
  if (items == nullptr) return;
  const std::size_t position = index == 0 ? items->size() : std::min(index - 1, items->size());
  items->insert(items->begin() + static_cast<std::ptrdiff_t>(position), std::move(descriptor));
}

void AppleEvent::setParamDescriptor(AppleEventDescriptor descriptor, FourCharCode keyword) {
  for (auto& [key, parameter] : parameters) {
    if (key == keyword) {
      parameter = std::move(descriptor);
      return;
    }
  }
  parameters.emplace_back(keyword, std::move(descriptor));
}

const AppleEventDescriptor* AppleEvent::paramDescriptor(FourCharCode keyword) const {
  for (const auto& [key, parameter] : parameters) {
    if (key == keyword) return &parameter;
  }
  return nullptr;
}

}  // namespace tervano
