#include "archive/unarchiver.h"

#include <deque>
#include <unordered_map>
#include <utility>

#include "archive/keyed_archive.h"

namespace tervano {
namespace {

using Kind = ObjectTable::Kind;
using Index = ObjectTable::Index;
using Entry = KeyedArchive::Entry;

[[noreturn]] void refuseToUnarchive(const std::string& what) {
  throw PlatformException(kInvalidUnarchiveException, what);
}

// Gives a variable its former value back, also when an exception passes: a class may catch what one
// of its fields throws, and go on.
template <typename T>
class Restored {
 public:
  Restored(T& variable, T now) : variable_(variable), before_(std::exchange(variable, now)) {}
  ~Restored() { variable_ = before_; }
  Restored(const Restored&) = delete;
  Restored& operator=(const Restored&) = delete;

 private:
  T& variable_;
  T before_;
};

}  // namespace

// Strings, numbers and data are made anew at each reference; entries with a class are made once and
// kept. All that is made is paid for, copies included, so that a small archive whose entries share
// one another cannot grow into a huge graph.
struct Unarchiver::Graph {
  Graph(std::span<const std::uint8_t> bytes, const ClassRegistry& classes)
      : registry(classes),
        archive(bytes),
        table(archive.table()),
        madeByEntry(archive.entries()),
        budget(bytes.size(),
               archive.table().footprint() + archive.entries() * sizeof(std::uint32_t)) {}

  struct Made {
    Value value;
    // What one more copy of the value costs.
    std::uint64_t cost = 0;
    bool finished = false;
  };

  Value decodeRoot(Unarchiver& unarchiver);
  // The value of a UID object.
  Value decodeReference(Index uid, std::string_view key, Unarchiver& unarchiver);
  Value decodeEntry(Entry entry, Unarchiver& unarchiver, std::uint64_t& cost);
  Made& makeEntry(Entry entry, Unarchiver& unarchiver);
  void make(Index dictionary, Made& made, Unarchiver& unarchiver);
  void makeArray(Index dictionary, Made& made, Unarchiver& unarchiver);
  void makeDictionary(Index dictionary, Made& made, Unarchiver& unarchiver);
  void makeUrl(Index dictionary, Made& made, Unarchiver& unarchiver);
  void makeObject(Index dictionary, const std::string& name, Made& made, Unarchiver& unarchiver);
  Value scalarValue(Index object, std::uint64_t& cost);
  DataPtr dataOf(Index object);
  Index arrayOfReferences(Index dictionary, std::string_view key) const;
  Index uidAt(Index array, std::uint32_t position, std::string_view key) const;
  // Text under a key of the format's own, inline or by reference.
  std::string plainText(Index dictionary, std::string_view key) const;
  DataPtr plainData(Index dictionary, std::string_view key);

  std::optional<Index> find(std::string_view key) const {
    std::string storage;
    return table.find(current, archiveKey(key, storage));
  }

  const ClassRegistry& registry;
  KeyedArchive archive;
  const ObjectTable& table;
  // Positions in `made` plus one.
  std::vector<std::uint32_t> madeByEntry;
  std::deque<Made> made;
  std::unordered_map<Index, DataPtr> blocks;
  ReadBudget budget;
  // The dictionary of the object being decoded.
  Index current = 0;
  int depth = 0;
};

Value Unarchiver::Graph::decodeRoot(Unarchiver& unarchiver) {
  const Entry root = archive.root();
  if (archive.isNil(root)) return nullptr;
  std::uint64_t cost = 0;
  if (table.kind(archive.objectOf(root)) != Kind::Dictionary) {
    return decodeEntry(root, unarchiver, cost);
  }
  // Nobody else can refer to the root, so it is handed over instead of copied.
  return std::move(makeEntry(root, unarchiver).value);
}

Value Unarchiver::Graph::decodeReference(Index uid, std::string_view key, Unarchiver& unarchiver) {
  if (table.kind(uid) != Kind::Uid) throwWrongType(key);
  std::uint64_t cost = 0;
  return decodeEntry(archive.entryOfUid(uid), unarchiver, cost);
}

// `cost` grows by what the value costs.
Value Unarchiver::Graph::decodeEntry(Entry entry, Unarchiver& unarchiver, std::uint64_t& cost) {
  if (archive.isNil(entry)) return nullptr;
  const Index object = archive.objectOf(entry);
  if (table.kind(object) != Kind::Dictionary) return scalarValue(object, cost);
  const Made& known = makeEntry(entry, unarchiver);
  budget.charge(known.cost);
  cost += known.cost;
  return known.value;
}

Value Unarchiver::Graph::scalarValue(Index object, std::uint64_t& cost) {
  switch (table.kind(object)) {
    case Kind::Ascii:
    case Kind::Utf16:
    case Kind::Utf8: {
      const std::uint64_t unit = table.kind(object) == Kind::Utf16 ? 3 : 1;
      const std::uint64_t size = ReadBudget::ofString(table.count(object) * unit);
      budget.charge(size);
      cost += size;
      return table.string(object);
    }
    case Kind::Data:
      return dataOf(object);
    case Kind::False:
    case Kind::True:
    case Kind::Integer:
    case Kind::Real:
    case Kind::Date:
      return table.scalar(object);
    case Kind::Uid:
    case Kind::Array:
    case Kind::Dictionary:
      break;
  }
  refuseToUnarchive("an entry that is neither an object nor a plain value");
}

Unarchiver::Graph::Made& Unarchiver::Graph::makeEntry(Entry entry, Unarchiver& unarchiver) {
  if (const std::uint32_t position = madeByEntry[entry]; position != 0) {
    Made& known = made[position - 1];
    if (!known.finished) refuseToUnarchive("an object that contains itself");
    return known;
  }
  if (depth >= kMaximumArchiveDepth) refuseToUnarchive("the objects are nested too deeply");
  const Index dictionary = archive.objectOf(entry);
  // An object's keys are looked through several times, and a hostile file names one dictionary as
  // many entries.
  budget.charge(2 * sizeof(Made) + std::uint64_t{table.count(dictionary)} * ReadBudget::kKey);
  Made& fresh = made.emplace_back();
  madeByEntry[entry] = static_cast<std::uint32_t>(made.size());
  const Restored<int> deeper(depth, depth + 1);
  make(dictionary, fresh, unarchiver);
  fresh.finished = true;
  return fresh;
}

void Unarchiver::Graph::make(Index dictionary, Made& made, Unarchiver& unarchiver) {
  const KeyedArchive::Class& type = archive.classOf(dictionary);
  switch (type.kind) {
    case ArchiveClass::Array:
      return makeArray(dictionary, made, unarchiver);
    case ArchiveClass::Dictionary:
      return makeDictionary(dictionary, made, unarchiver);
    case ArchiveClass::String: {
      std::string text = plainText(dictionary, "NS.string");
      made.cost = ReadBudget::ofString(text.size());
      budget.charge(made.cost);
      made.value = std::move(text);
      return;
    }
    case ArchiveClass::Data:
      made.value = plainData(dictionary, "NS.data");
      return;
    case ArchiveClass::Date: {
      const auto time = table.find(dictionary, "NS.time");
      if (time && table.kind(*time) == Kind::Integer) {
        made.value = Date{doubleValue(table.integer(*time))};
      } else if (time && table.kind(*time) == Kind::Real) {
        made.value = Date{table.real(*time)};
      } else {
        throwWrongType("NS.time");
      }
      return;
    }
    case ArchiveClass::Uuid: {
      const DataPtr bytes = plainData(dictionary, "NS.uuidbytes");
      Uuid uuid;
      if (bytes->size() != uuid.bytes.size()) throwWrongType("NS.uuidbytes");
      std::copy(bytes->begin(), bytes->end(), uuid.bytes.begin());
      made.value = uuid;
      return;
    }
    case ArchiveClass::Url:
      return makeUrl(dictionary, made, unarchiver);
    case ArchiveClass::Number: {
      for (const std::string_view key : {"NS.number", "NS.boolval", "NS.intval", "NS.dblval"}) {
        const auto number = table.find(dictionary, key);
        if (!number) continue;
        if (table.kind(*number) > Kind::Real) throwWrongType(key);
        made.value = table.scalar(*number);
        return;
      }
      throwWrongType("NS.number");
    }
    case ArchiveClass::Null:
      return;
    case ArchiveClass::Other:
      return makeObject(dictionary, table.string(type.name), made, unarchiver);
  }
}

void Unarchiver::Graph::makeArray(Index dictionary, Made& made, Unarchiver& unarchiver) {
  const Index members = arrayOfReferences(dictionary, "NS.objects");
  const std::uint32_t count = table.count(members);
  std::uint64_t cost = std::uint64_t{count} * sizeof(Value);
  budget.charge(cost);
  Value::Array array;
  array.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const Entry entry = archive.entryOfUid(uidAt(members, i, "NS.objects"));
    array.push_back(decodeEntry(entry, unarchiver, cost));
  }
  made.value = std::move(array);
  made.cost = cost;
}

void Unarchiver::Graph::makeDictionary(Index dictionary, Made& made, Unarchiver& unarchiver) {
  const Index keys = arrayOfReferences(dictionary, "NS.keys");
  const Index values = arrayOfReferences(dictionary, "NS.objects");
  const std::uint32_t count = table.count(keys);
  if (table.count(values) != count) refuseToUnarchive("a dictionary with more keys or more values");
  std::uint64_t cost = std::uint64_t{count} * ReadBudget::kDictionaryEntry;
  budget.charge(cost);
  Value::Dictionary result;
  for (std::uint32_t i = 0; i < count; ++i) {
    const Entry keyEntry = archive.entryOfUid(uidAt(keys, i, "NS.keys"));
    Value key = decodeEntry(keyEntry, unarchiver, cost);
    auto* text = key.getIf<std::string>();
    if (text == nullptr) refuseToUnarchive("a dictionary key that is no string");
    const Entry entry = archive.entryOfUid(uidAt(values, i, "NS.objects"));
    if (!result.emplace(std::move(*text), decodeEntry(entry, unarchiver, cost)).second) {
      refuseToUnarchive("a dictionary key that stands twice");
    }
  }
  made.value = std::move(result);
  made.cost = cost;
}

void Unarchiver::Graph::makeUrl(Index dictionary, Made& made, Unarchiver& unarchiver) {
  std::string relative = plainText(dictionary, "NS.relative");
  std::uint64_t cost = ReadBudget::ofString(relative.size());
  budget.charge(cost);
  Url url(std::move(relative));
  if (const auto base = table.find(dictionary, "NS.base")) {
    const Value outer = decodeReference(*base, "NS.base", unarchiver);
    if (const auto* baseUrl = outer.getIf<Url>()) {
      url = Url::URLWithString(url.absoluteString(), *baseUrl);
      cost = ReadBudget::ofString(url.absoluteString().size());
      budget.charge(cost);
    } else if (!outer.isNull()) {
      throwWrongType("NS.base");
    }
  }
  made.value = std::move(url);
  made.cost = cost;
}

void Unarchiver::Graph::makeObject(Index dictionary, const std::string& name, Made& made,
                                   Unarchiver& unarchiver) {
  // A rough size of what a class keeps for itself.
  constexpr std::uint64_t kObjectSize = 384;
  budget.charge(kObjectSize);
  std::shared_ptr<Coding> object = registry.makeBlank(name);
  if (object == nullptr) {
    refuseToUnarchive("cannot decode object of class (" + name + "); the class is unknown");
  }
  const Restored<Index> inside(current, dictionary);
  object->initWithCoder(unarchiver);
  made.value = std::move(object);
}

DataPtr Unarchiver::Graph::dataOf(Index object) {
  DataPtr& shared = blocks[object];
  if (shared == nullptr) {
    const std::span<const std::uint8_t> bytes = table.data(object);
    budget.charge(2 * ReadBudget::kDataBlock + bytes.size());
    shared = std::make_shared<const Data>(bytes.begin(), bytes.end());
  }
  return shared;
}

Index Unarchiver::Graph::arrayOfReferences(Index dictionary, std::string_view key) const {
  const auto found = table.find(dictionary, key);
  if (!found || table.kind(*found) != Kind::Array) throwWrongType(key);
  return *found;
}

Index Unarchiver::Graph::uidAt(Index array, std::uint32_t position, std::string_view key) const {
  const Index uid = table.element(array, position);
  if (table.kind(uid) != Kind::Uid) throwWrongType(key);
  return uid;
}

std::string Unarchiver::Graph::plainText(Index dictionary, std::string_view key) const {
  auto found = table.find(dictionary, key);
  if (found && table.kind(*found) == Kind::Uid) {
    const Entry entry = archive.entryOfUid(*found);
    found = archive.objectOf(entry);
  }
  if (!found || !table.isString(*found)) throwWrongType(key);
  return table.string(*found);
}

DataPtr Unarchiver::Graph::plainData(Index dictionary, std::string_view key) {
  auto found = table.find(dictionary, key);
  if (found && table.kind(*found) == Kind::Uid)
    found = archive.objectOf(archive.entryOfUid(*found));
  if (!found || table.kind(*found) != Kind::Data) throwWrongType(key);
  return dataOf(*found);
}

Unarchiver::Unarchiver(std::span<const std::uint8_t> bytes, const ClassRegistry& registry)
    : graph_(std::make_unique<Graph>(bytes, registry)) {}

Unarchiver::~Unarchiver() = default;

Value Unarchiver::unarchiveObjectWithData(std::span<const std::uint8_t> bytes,
                                          const ClassRegistry& registry) {
  Unarchiver unarchiver(bytes, registry);
  return unarchiver.graph_->decodeRoot(unarchiver);
}

bool Unarchiver::containsValueForKey(std::string_view key) const {
  return graph_->find(key).has_value();
}

bool Unarchiver::decodeBool(std::string_view key) {
  const auto found = graph_->find(key);
  if (!found) return false;
  const Kind kind = graph_->table.kind(*found);
  if (kind == Kind::False || kind == Kind::True) return kind == Kind::True;
  if (kind == Kind::Integer) {
    const Value number = graph_->table.integer(*found);
    if (number == Value(0) || number == Value(1)) return number == Value(1);
  }
  throwWrongType(key);
}

std::int64_t Unarchiver::decodeInteger(std::string_view key) {
  const auto found = graph_->find(key);
  if (!found) return 0;
  if (graph_->table.kind(*found) != Kind::Integer) throwWrongType(key);
  const Value number = graph_->table.integer(*found);
  const auto* plain = number.getIf<std::int64_t>();
  if (plain == nullptr) throwWrongType(key);
  return *plain;
}

double Unarchiver::decodeDouble(std::string_view key) {
  const auto found = graph_->find(key);
  if (!found) return 0;
  const Kind kind = graph_->table.kind(*found);
  if (kind != Kind::Integer && kind != Kind::Real) throwWrongType(key);
  return doubleValue(graph_->table.scalar(*found));
}

Value Unarchiver::decodeObject(std::string_view key) {
  const auto found = graph_->find(key);
  if (!found) return nullptr;
  return graph_->decodeReference(*found, key, *this);
}

namespace {

// The content of a decoded Value of that kind, nullopt for nil.
template <typename T>
std::optional<T> contentOf(Value value, std::string_view key) {
  if (value.isNull()) return std::nullopt;
  auto* content = value.getIf<T>();
  if (content == nullptr) Unarchiver::throwWrongType(key);
  return std::move(*content);
}

}  // namespace

std::optional<std::string> Unarchiver::decodeString(std::string_view key) {
  return contentOf<std::string>(decodeObject(key), key);
}

std::optional<Url> Unarchiver::decodeUrl(std::string_view key) {
  return contentOf<Url>(decodeObject(key), key);
}

std::optional<Value::Array> Unarchiver::decodeArray(std::string_view key) {
  return contentOf<Value::Array>(decodeObject(key), key);
}

std::optional<std::vector<std::string>> Unarchiver::decodeStringArray(std::string_view key) {
  std::optional<Value::Array> array = decodeArray(key);
  if (!array) return std::nullopt;
  std::vector<std::string> strings;
  strings.reserve(array->size());
  for (Value& member : *array) {
    auto* text = member.getIf<std::string>();
    if (text == nullptr) throwWrongType(key);
    strings.push_back(std::move(*text));
  }
  return strings;
}

DataPtr Unarchiver::decodeBytes(std::string_view key) {
  const auto found = graph_->find(key);
  if (!found) return nullptr;
  if (graph_->table.kind(*found) == Kind::Data) return graph_->dataOf(*found);
  return contentOf<DataPtr>(decodeObject(key), key).value_or(nullptr);
}

void Unarchiver::throwWrongType(std::string_view key) {
  refuseToUnarchive("value for key (" + std::string(key) + ") is of a wrong type");
}

}  // namespace tervano
