#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tervano {

// A domain is what belongs to one application, named by its identifier, such as "org.gnome.gedit".
// Names differ in case between an application and its settings, so ASCII case does not count.

// A domain's name has at least this many parts between dots: "org" and "org.gnome" stand for many
// applications.
inline constexpr std::size_t kFewestParts = 3;
inline constexpr std::size_t kLongestDomain = 255;

// Why nothing can be done with a domain of that name, as the end of a sentence that begins with
// the domain; empty for a usable name.
std::string refusalOfDomain(const std::string& name);

std::vector<std::string> partsOfDomain(std::string_view domain);

// Whether a settings schema belongs to the domain: it has the domain's name, or begins with it and
// a dot.
bool domainOwnsSchema(std::string_view domain, std::string_view schemaIdentifier);

bool isEqualWithoutCase(std::string_view left, std::string_view right);

}  // namespace tervano
