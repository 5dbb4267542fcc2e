#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "archive/object_table.h"

namespace tervano {

// The classes of a keyed archive that stand for plain values; mutable kinds are read as the plain
// ones.
enum class ArchiveClass {
  Other,
  Array,
  Dictionary,
  String,
  Data,
  Date,
  Uuid,
  Url,
  Number,
  Null,
};

// A keyed archive as a checked table: the header, the entries of "$objects" and their class
// descriptions. What the unarchiver and the inspection have in common. Throws PlatformException
// (kInvalidUnarchiveException) for everything that is not as published.
class KeyedArchive {
 public:
  using Index = ObjectTable::Index;
  using Entry = std::uint32_t;

  struct Class {
    ArchiveClass kind;
    // The string object of the name, which is not longer than kLongestName.
    Index name;
  };
  static constexpr std::uint32_t kLongestName = 256;

  // `bytes` must outlive the archive.
  explicit KeyedArchive(std::span<const std::uint8_t> bytes);

  const ObjectTable& table() const { return table_; }
  Entry entries() const { return table_.count(objects_); }
  // The entry that the root key of "$top" names.
  Entry root() const { return root_; }

  // The entry that a UID object names; throws when it is out of range.
  Entry entryOfUid(Index uid) const;
  // The table object of an entry.
  Index objectOf(Entry entry) const { return table_.element(objects_, entry); }
  // True for the text that stands for nil.
  bool isNil(Entry entry) const { return table_.stringEquals(objectOf(entry), "$null"); }
  // The class of a dictionary entry, by its "$class". A description is checked once.
  const Class& classOf(Index dictionary);

 private:
  Class describe(Index description);
  void checkChain(Index chain);

  ObjectTable table_;
  Index objects_ = 0;
  Entry root_ = 0;
  // By the object of the description: many entries may name one.
  std::unordered_map<Index, Class> classes_;
  std::unordered_set<Index> checkedChains_;
};

// Keys that begin with "$" belong to the format; an object's own get one more "$" in front.
std::string_view archiveKey(std::string_view key, std::string& storage);

}  // namespace tervano
