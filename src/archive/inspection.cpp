#include "archive/inspection.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "archive/keyed_archive.h"
#include "archive/platform_exception.h"
#include "archive/unarchiver.h"
#include "archive/xml_text.h"

namespace tervano {
namespace {

using Kind = ObjectTable::Kind;
using Index = ObjectTable::Index;
using Entry = KeyedArchive::Entry;

class Inspector {
 public:
  explicit Inspector(std::span<const std::uint8_t> bytes)
      : archive_(bytes),
        table_(archive_.table()),
        budget_(bytes.size(), table_.footprint()),
        expandDownTo_(budget_.left() / 2),
        repetitionsLeft_(kRepetitionFloor + kRepetitionFactor * bytes.size()) {}

  Value root() { return entry(archive_.root()); }

 private:
  // How much of what has been shown before may be shown again: little objects that are shared are
  // shown in each place, many references to a large one do not make the result large.
  static constexpr std::uint64_t kRepetitionFloor = 65'536;
  static constexpr std::uint64_t kRepetitionFactor = 8;

  Value text(std::string text) {
    budget_.charge(ReadBudget::ofString(text.size()));
    return text;
  }

  Value entry(Entry entry) {
    if (archive_.isNil(entry)) return nullptr;
    const Index object = archive_.objectOf(entry);
    if (std::find(path_.begin(), path_.end(), entry) != path_.end()) {
      return text("<cycle to entry " + std::to_string(entry) + ">");
    }
    const bool isContainer =
        table_.kind(object) == Kind::Dictionary || table_.kind(object) == Kind::Array;
    if (isContainer && (budget_.left() < expandDownTo_ || tooDeep())) {
      return text("<entry " + std::to_string(entry) + ">");
    }
    const bool isRepeated = !shown_.insert(entry).second;
    if (!isRepeated || repeatedFrom_) return expanded(entry, object, isContainer && isRepeated);
    repeatedFrom_ = budget_.left();
    Value value = expanded(entry, object, isContainer);
    const std::uint64_t used = *repeatedFrom_ - budget_.left();
    repetitionsLeft_ -= std::min(used, repetitionsLeft_);
    repeatedFrom_.reset();
    return value;
  }

  Value expanded(Entry entry, Index object, bool isRepeatedContainer) {
    if (isRepeatedContainer && *repeatedFrom_ - budget_.left() >= repetitionsLeft_) {
      return text("<entry " + std::to_string(entry) + ">");
    }
    path_.push_back(entry);
    const bool isObject =
        table_.kind(object) == Kind::Dictionary && table_.find(object, "$class").has_value();
    Value value = isObject ? objectValue(object) : plain(object);
    path_.pop_back();
    return value;
  }

  // Entries and containers inside them count alike.
  bool tooDeep() const { return depth_ >= Unarchiver::kMaximumArchiveDepth; }

  Value objectValue(Index object) {
    ++depth_;
    budget_.charge(std::uint64_t{table_.count(object)} * ReadBudget::kKey);
    const KeyedArchive::Class& type = archive_.classOf(object);
    std::optional<Value> value;
    switch (type.kind) {
      case ArchiveClass::Array:
        value = arrayValue(object);
        break;
      case ArchiveClass::Dictionary:
        value = dictionaryValue(object);
        break;
      case ArchiveClass::String:
        value = memberOf(object, "NS.string", Kind::Ascii, Kind::Utf8);
        break;
      case ArchiveClass::Data:
        value = memberOf(object, "NS.data", Kind::Data, Kind::Data);
        break;
      case ArchiveClass::Date:
        value = memberOf(object, "NS.time", Kind::Integer, Kind::Real);
        if (value) value = Value(Date{doubleValue(*value)});
        break;
      case ArchiveClass::Uuid:
        value = uuidValue(object);
        break;
      case ArchiveClass::Url:
        value = urlValue(object);
        break;
      case ArchiveClass::Number:
        value = memberOf(object, "NS.number", Kind::False, Kind::Real);
        break;
      case ArchiveClass::Null:
        value = Value();
        break;
      case ArchiveClass::Other:
        break;
    }
    // What lacks its class's own keys is shown as it stands.
    if (!value) value = anyObjectValue(object, table_.string(type.name));
    --depth_;
    return std::move(*value);
  }

  Value anyObjectValue(Index object, const std::string& className) {
    Value::Dictionary result;
    for (std::uint32_t i = 0; i < table_.count(object); ++i) {
      std::string key = table_.string(table_.key(object, i));
      budget_.charge(ReadBudget::kDictionaryEntry + ReadBudget::ofString(key.size()));
      Value value = key == "$class" ? text(className) : plain(table_.value(object, i));
      result.emplace(std::move(key), std::move(value));
    }
    return result;
  }

  // What stands inline: UIDs are followed.
  Value plain(Index object) {
    switch (table_.kind(object)) {
      case Kind::Uid:
        return entry(archive_.entryOfUid(object));
      case Kind::Data:
        return dataValue(object);
      case Kind::Array:
      case Kind::Dictionary:
        return containerValue(object);
      case Kind::Utf16:
        budget_.charge(ReadBudget::ofString(std::uint64_t{table_.count(object)} * 3));
        return table_.scalar(object);
      default:
        budget_.charge(ReadBudget::ofString(table_.count(object)));
        return table_.scalar(object);
    }
  }

  Value containerValue(Index object) {
    if (tooDeep()) return text("<nested too deeply>");
    ++depth_;
    Value value;
    if (table_.kind(object) == Kind::Array) {
      value = membersOf(object);
    } else {
      Value::Dictionary result;
      for (std::uint32_t i = 0; i < table_.count(object); ++i) {
        std::string key = table_.string(table_.key(object, i));
        budget_.charge(ReadBudget::kDictionaryEntry + ReadBudget::ofString(key.size()));
        result.emplace(std::move(key), plain(table_.value(object, i)));
      }
      value = std::move(result);
    }
    --depth_;
    return value;
  }

  Value::Array membersOf(Index array) {
    Value::Array result;
    budget_.charge(std::uint64_t{table_.count(array)} * sizeof(Value));
    result.reserve(table_.count(array));
    for (std::uint32_t i = 0; i < table_.count(array); ++i) {
      result.push_back(plain(table_.element(array, i)));
    }
    return result;
  }

  std::optional<Value> arrayValue(Index object) {
    const auto members = table_.find(object, "NS.objects");
    if (!members || table_.kind(*members) != Kind::Array) return std::nullopt;
    return Value(membersOf(*members));
  }

  std::optional<Value> dictionaryValue(Index object) {
    const auto keys = table_.find(object, "NS.keys");
    const auto values = table_.find(object, "NS.objects");
    if (!keys || !values || table_.kind(*keys) != Kind::Array ||
        table_.kind(*values) != Kind::Array || table_.count(*keys) != table_.count(*values)) {
      return std::nullopt;
    }
    Value::Dictionary result;
    for (std::uint32_t i = 0; i < table_.count(*keys); ++i) {
      std::string key = keyText(plain(table_.element(*keys, i)));
      budget_.charge(ReadBudget::kDictionaryEntry + 2 * ReadBudget::ofString(key.size()));
      Value value = plain(table_.element(*values, i));
      // Different keys may be described alike.
      while (result.contains(key)) key += " #" + std::to_string(i);
      result.emplace(std::move(key), std::move(value));
    }
    return Value(std::move(result));
  }

  static std::string keyText(const Value& key) {
    if (const auto* text = key.getIf<std::string>()) return *text;
    if (key.isNull()) return "<nil>";
    if (const auto* boolean = key.getIf<bool>()) return *boolean ? "<true>" : "<false>";
    if (const auto* number = key.getIf<std::int64_t>()) return "<" + std::to_string(*number) + ">";
    if (const auto* number = key.getIf<std::uint64_t>()) return "<" + std::to_string(*number) + ">";
    if (const auto* number = key.getIf<double>()) return "<" + XMLTextOfReal(*number) + ">";
    if (const auto* url = key.getIf<Url>()) return "<" + url->absoluteString() + ">";
    if (const auto* uuid = key.getIf<Uuid>()) return "<" + uuid->UUIDString() + ">";
    if (const auto* date = key.getIf<Date>()) {
      return "<date " + XMLTextOfReal(date->secondsSinceReferenceDate) + ">";
    }
    if (const auto* data = key.getIf<DataPtr>()) {
      return "<data of " + std::to_string((*data)->size()) + " bytes>";
    }
    if (const Value* name = key.find("$class"); name != nullptr && name->getIf<std::string>()) {
      return "<" + *name->getIf<std::string>() + ">";
    }
    return key.getIf<Value::Array>() != nullptr ? "<array>" : "<dictionary>";
  }

  // A member of one of these kinds, inline or by reference.
  std::optional<Index> find(Index object, std::string_view key, Kind first, Kind last) const {
    auto found = table_.find(object, key);
    if (found && table_.kind(*found) == Kind::Uid) {
      found = archive_.objectOf(archive_.entryOfUid(*found));
    }
    if (!found || table_.kind(*found) < first || table_.kind(*found) > last) return std::nullopt;
    return found;
  }

  std::optional<Value> memberOf(Index object, std::string_view key, Kind first, Kind last) {
    const auto found = find(object, key, first, last);
    return found ? std::optional<Value>(plain(*found)) : std::nullopt;
  }

  std::optional<Value> uuidValue(Index object) {
    const auto found = find(object, "NS.uuidbytes", Kind::Data, Kind::Data);
    Uuid uuid;
    if (!found || table_.count(*found) != uuid.bytes.size()) return std::nullopt;
    const auto bytes = table_.data(*found);
    std::copy(bytes.begin(), bytes.end(), uuid.bytes.begin());
    return Value(uuid);
  }

  std::optional<Value> urlValue(Index object) {
    const auto relative = find(object, "NS.relative", Kind::Ascii, Kind::Utf8);
    if (!relative) return std::nullopt;
    Value base;
    if (const auto reference = table_.find(object, "NS.base")) base = plain(*reference);
    const auto* baseUrl = base.getIf<Url>();
    if (baseUrl == nullptr && !base.isNull()) return std::nullopt;
    const Value reference = plain(*relative);
    const std::string& text = *reference.getIf<std::string>();
    Url url = baseUrl == nullptr ? Url(text) : Url::URLWithString(text, *baseUrl);
    budget_.charge(ReadBudget::ofString(url.absoluteString().size()));
    return Value(std::move(url));
  }

  Value dataValue(Index object) {
    DataPtr& shared = blocks_[object];
    if (shared == nullptr) {
      const std::span<const std::uint8_t> bytes = table_.data(object);
      budget_.charge(2 * ReadBudget::kDataBlock + bytes.size());
      shared = std::make_shared<const Data>(bytes.begin(), bytes.end());
    }
    return shared;
  }

  KeyedArchive archive_;
  const ObjectTable& table_;
  ReadBudget budget_;
  // Below this, objects are only named.
  std::uint64_t expandDownTo_;
  std::uint64_t repetitionsLeft_;
  // The budget when the outermost entry that is shown again was begun.
  std::optional<std::uint64_t> repeatedFrom_;
  std::unordered_set<Entry> shown_;
  std::unordered_map<Index, DataPtr> blocks_;
  // The entries that enclose the present one.
  std::vector<Entry> path_;
  int depth_ = 0;
};

}  // namespace

Value plainValueOfKeyedArchive(std::span<const std::uint8_t> bytes) {
  return Inspector(bytes).root();
}

}  // namespace tervano
