#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/linux/uniform_type_index.h"

namespace tervano {

// What the desktop's shared MIME database adds to the built-in types. Immutable once read; any
// thread.
class DesktopTypes {
 public:
  struct Type {
    std::string identifier;
    // Direct parents, built-in or of the database.
    std::vector<std::string> parents;
    // The built-in types among all that it conforms to.
    UniformTypeSet builtIn;
    // The others, itself included.
    std::vector<std::string> others;
  };

  // Reads the "mime" folders below XDG_DATA_HOME and XDG_DATA_DIRS. Blocking.
  static DesktopTypes read();
  // Reads these "mime" folders, the most important one first.
  static DesktopTypes read(const std::vector<std::string>& folders);

  // By an extension in lower case; null when the database does not know it either.
  const std::string* identifierForExtension(std::string_view extension) const;
  // Null when the database does not declare it.
  const Type* typeWithIdentifier(std::string_view identifier) const;

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return uniformTypeHash(text); }
  };
  template <typename Mapped>
  using TextMap = std::unordered_map<std::string, Mapped, Hash, std::equal_to<>>;
  struct Reader;

  TextMap<std::string> extensions_;
  TextMap<Type> types_;
};

}  // namespace tervano
