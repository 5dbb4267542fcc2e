#include "tools/defaults/domain.h"

#include <glib.h>

#include <algorithm>

#include "archive/utf.h"

namespace tervano {

namespace {

bool isControl(char character) {
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
}

}  // namespace

bool isEqualWithoutCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         g_ascii_strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::vector<std::string> partsOfDomain(std::string_view domain) {
  std::vector<std::string> parts;
  while (true) {
    const auto dot = domain.find('.');
    parts.emplace_back(domain.substr(0, dot));
    if (dot == std::string_view::npos) return parts;
    domain.remove_prefix(dot + 1);
  }
}

std::string refusalOfDomain(const std::string& name) {
  if (name.size() > kLongestDomain) return "is longer than any application's name";
  if (!isValidUtf8(name) || name.find('/') != std::string::npos ||
      std::any_of(name.begin(), name.end(), isControl)) {
    return "is no application's name";
  }
  const auto parts = partsOfDomain(name);
  if (std::any_of(parts.begin(), parts.end(), [](const auto& part) { return part.empty(); })) {
    return "is no application's name";
  }
  if (parts.size() < kFewestParts) {
    return "is too general: a name of at least three parts is needed, such as org.example.App";
  }
  return {};
}

bool domainOwnsSchema(std::string_view domain, std::string_view schemaIdentifier) {
  return isEqualWithoutCase(domain, schemaIdentifier.substr(0, domain.size())) &&
         (schemaIdentifier.size() == domain.size() || schemaIdentifier[domain.size()] == '.');
}

}  // namespace tervano
