#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

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
    std::string name;
  };

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
  // The class of a dictionary entry, by its "$class". Checked once for each description.
  const Class& classOf(Index dictionary);

 private:
  Class describe(Index description) const;

  ObjectTable table_;
  Index objects_ = 0;
  Entry root_ = 0;
  std::unordered_map<Entry, Class> classes_;
};

// Keys that begin with "$" belong to the format; an object's own get one more "$" in front.
std::string_view archiveKey(std::string_view key, std::string& storage);

}  // namespace tervano
