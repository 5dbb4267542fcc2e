#include "archive/keyed_archive.h"

#include <utility>

#include "archive/platform_exception.h"

namespace tervano {
namespace {

using Kind = ObjectTable::Kind;

[[noreturn]] void refuseArchive(const std::string& what) {
  throw PlatformException(kInvalidUnarchiveException, "incomprehensible archive: " + what);
}

ArchiveClass kindOfClass(std::string_view name) {
  static constexpr std::pair<std::string_view, ArchiveClass> kKinds[] = {
      {"NSArray", ArchiveClass::Array},
      {"NSMutableArray", ArchiveClass::Array},
      {"NSSet", ArchiveClass::Array},
      {"NSMutableSet", ArchiveClass::Array},
      {"NSDictionary", ArchiveClass::Dictionary},
      {"NSMutableDictionary", ArchiveClass::Dictionary},
      {"NSString", ArchiveClass::String},
      {"NSMutableString", ArchiveClass::String},
      {"NSData", ArchiveClass::Data},
      {"NSMutableData", ArchiveClass::Data},
      {"NSDate", ArchiveClass::Date},
      {"NSUUID", ArchiveClass::Uuid},
      {"NSURL", ArchiveClass::Url},
      {"NSNumber", ArchiveClass::Number},
      {"NSNull", ArchiveClass::Null}};
  for (const auto& [kindName, kind] : kKinds) {
    if (kindName == name) return kind;
  }
  return ArchiveClass::Other;
}

bool isName(const ObjectTable& table, ObjectTable::Index object) {
  return table.isString(object) && table.count(object) <= KeyedArchive::kLongestName;
}

}  // namespace

KeyedArchive::KeyedArchive(std::span<const std::uint8_t> bytes) : table_(ObjectTable::read(bytes)) {
  const Index header = table_.root();
  if (table_.kind(header) != Kind::Dictionary) refuseArchive("its root is no dictionary");
  const auto version = table_.find(header, "$version");
  if (!version || table_.kind(*version) != Kind::Integer ||
      table_.integer(*version) != Value(100000)) {
    refuseArchive("wrong $version");
  }
  const auto archiver = table_.find(header, "$archiver");
  if (!archiver || !table_.isString(*archiver) ||
      !table_.stringEquals(*archiver, "NSKeyedArchiver")) {
    refuseArchive("wrong $archiver");
  }
  const auto objects = table_.find(header, "$objects");
  if (!objects || table_.kind(*objects) != Kind::Array) refuseArchive("no $objects");
  objects_ = *objects;
  const auto top = table_.find(header, "$top");
  if (!top || table_.kind(*top) != Kind::Dictionary) refuseArchive("no $top");
  auto root = table_.find(*top, "root");
  if (!root) root = table_.find(*top, "$0");
  if (!root || table_.kind(*root) != Kind::Uid) refuseArchive("no root object");
  root_ = entryOfUid(*root);
}

KeyedArchive::Entry KeyedArchive::entryOfUid(Index uid) const {
  const std::uint64_t entry = table_.uid(uid);
  if (entry >= entries()) refuseArchive("UID " + std::to_string(entry) + " is out of range");
  return static_cast<Entry>(entry);
}

const KeyedArchive::Class& KeyedArchive::classOf(Index dictionary) {
  const auto reference = table_.find(dictionary, "$class");
  if (!reference || table_.kind(*reference) != Kind::Uid)
    refuseArchive("an object without a class");
  const Index description = objectOf(entryOfUid(*reference));
  const auto known = classes_.find(description);
  if (known != classes_.end()) return known->second;
  return classes_.emplace(description, describe(description)).first->second;
}

KeyedArchive::Class KeyedArchive::describe(Index description) {
  if (table_.kind(description) != Kind::Dictionary) refuseArchive("a missing class description");
  // A description has no class of its own, else descriptions could go round in a circle.
  if (table_.find(description, "$class")) refuseArchive("a circular class description");
  const auto name = table_.find(description, "$classname");
  if (!name || !isName(table_, *name)) refuseArchive("a class description without a name");
  const auto chain = table_.find(description, "$classes");
  if (!chain || table_.kind(*chain) != Kind::Array || table_.count(*chain) == 0) {
    refuseArchive("a class description without its chain");
  }
  if (!checkedChains_.contains(*chain)) checkChain(*chain);
  return {kindOfClass(table_.string(*name)), *name};
}

void KeyedArchive::checkChain(Index chain) {
  constexpr std::uint32_t kLongestChain = 256;
  if (table_.count(chain) > kLongestChain)
    refuseArchive("a class description with an endless chain");
  std::unordered_set<std::string> seen;
  for (std::uint32_t i = 0; i < table_.count(chain); ++i) {
    const Index link = table_.element(chain, i);
    if (!isName(table_, link)) refuseArchive("a class description whose chain holds no names");
    if (!seen.insert(table_.string(link)).second) refuseArchive("a circular class description");
  }
  checkedChains_.insert(chain);
}

std::string_view archiveKey(std::string_view key, std::string& storage) {
  if (!key.starts_with('$')) return key;
  storage = "$";
  storage += key;
  return storage;
}

}  // namespace tervano
