#include "archive/property_list.h"

#include <unordered_map>
#include <vector>

#include "archive/object_table.h"
#include "archive/platform_exception.h"

namespace tervano {
namespace {

// Turns the objects below a table's root into Values, without recursion.
class TreeBuilder {
 public:
  TreeBuilder(const ObjectTable& table, std::size_t inputSize)
      : table_(table), budget_(inputSize, table.footprint()), open_(table.size()) {}

  Value build() {
    Value root;
    place(table_.root(), &root);
    while (!frames_.empty()) step();
    return root;
  }

 private:
  using Kind = ObjectTable::Kind;
  using Index = ObjectTable::Index;

  struct Frame {
    Index object;
    std::uint32_t next;
    // Stays where it is: its own container has all its room reserved, or is a map.
    Value* target;
  };

  void place(Index object, Value* target) {
    switch (table_.kind(object)) {
      case Kind::Array: {
        enter(object, target);
        budget_.charge(std::uint64_t{table_.count(object)} * sizeof(Value));
        Value::Array array;
        array.reserve(table_.count(object));
        *target = std::move(array);
        break;
      }
      case Kind::Dictionary:
        enter(object, target);
        *target = Value::Dictionary();
        break;
      case Kind::Data:
        *target = dataOf(object);
        break;
      case Kind::Ascii:
      case Kind::Utf8:
        budget_.charge(ReadBudget::ofString(table_.count(object)));
        *target = table_.string(object);
        break;
      case Kind::Utf16:
        budget_.charge(ReadBudget::ofString(std::uint64_t{table_.count(object)} * 3));
        *target = table_.string(object);
        break;
      default:
        *target = table_.scalar(object);
        break;
    }
  }

  void enter(Index object, Value* target) {
    if (open_[object]) {
      throw PlatformException(kInvalidArgumentException, "a container that contains itself");
    }
    if (frames_.size() >= kMaximumPropertyListDepth) {
      throw PlatformException(kInvalidArgumentException, "the property list is nested too deeply");
    }
    open_[object] = true;
    frames_.push_back({object, 0, target});
  }

  void step() {
    const std::size_t level = frames_.size() - 1;
    const Index object = frames_[level].object;
    Value* const target = frames_[level].target;
    while (frames_[level].next < table_.count(object)) {
      const std::uint32_t at = frames_[level].next++;
      if (auto* array = target->getIf<Value::Array>()) {
        array->emplace_back();
        place(table_.element(object, at), &array->back());
      } else {
        std::string key = table_.string(table_.key(object, at));
        budget_.charge(ReadBudget::kDictionaryEntry + ReadBudget::ofString(key.size()));
        Value& entry = (*target->getIf<Value::Dictionary>())[std::move(key)];
        place(table_.value(object, at), &entry);
      }
      if (frames_.size() - 1 != level) return;
    }
    open_[object] = false;
    frames_.pop_back();
  }

  DataPtr dataOf(Index object) {
    DataPtr& shared = blocks_[object];
    if (shared == nullptr) {
      const std::span<const std::uint8_t> bytes = table_.data(object);
      budget_.charge(ReadBudget::kDataBlock + bytes.size());
      shared = std::make_shared<const Data>(bytes.begin(), bytes.end());
    }
    return shared;
  }

  const ObjectTable& table_;
  ReadBudget budget_;
  std::vector<Frame> frames_;
  // The containers on the stack.
  std::vector<bool> open_;
  std::unordered_map<Index, DataPtr> blocks_;
};

}  // namespace

Value propertyListWithData(std::span<const std::uint8_t> bytes) {
  return TreeBuilder(ObjectTable::read(bytes), bytes.size()).build();
}

Value binaryPropertyListWithData(std::span<const std::uint8_t> bytes) {
  return TreeBuilder(ObjectTable::readBinary(bytes), bytes.size()).build();
}

Value XMLPropertyListWithData(std::span<const std::uint8_t> bytes) {
  return TreeBuilder(ObjectTable::readXML(bytes), bytes.size()).build();
}

}  // namespace tervano
