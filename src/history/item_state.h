#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tervano {

// What an item looked like at a moment, so that it can be told later whether it is still that one.
struct ItemState {
  // As in "ls -l": "-" a regular file, "d" a folder, "l" a symbolic link, "?" anything else.
  char type = '?';
  // 0 where the file system gives numbers that change.
  std::uint64_t inode = 0;
  // Of a file. Of a folder, when all in it was looked at, the sum of its files.
  std::uint64_t size = 0;
  // Nanoseconds since 1970. Of a folder, when all in it was looked at, the newest.
  std::int64_t modified = 0;
  // How many items lie in the folder, when that was looked at.
  std::uint64_t count = 0;

  // The state as one word, and back; nil for what is none.
  std::string text() const;
  static std::optional<ItemState> ofText(const std::string& text);
  friend bool operator==(const ItemState&, const ItemState&) = default;
};

// Whether a folder is looked at with all that lies in it.
enum class ItemDepth { itself, withContents };

// Nil, with errno set, for what is not there or cannot be read. Links are not followed. Blocking;
// any thread.
std::optional<ItemState> itemStateAt(const std::string& path, ItemDepth depth);

// Whether this is the same item, and a file is unchanged. A folder that was looked at without its
// contents is the same one whatever lies in it now.
bool isSameItem(const ItemState& then, const ItemState& now, ItemDepth depth);
// The same for an item that may have been copied to where it is now.
bool isSameContent(const ItemState& then, const ItemState& now);

}  // namespace tervano
