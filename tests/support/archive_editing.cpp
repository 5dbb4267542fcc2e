#include "tests/support/archive_editing.h"

#include <algorithm>
#include <stdexcept>

#include "archive/property_list.h"

namespace tervano::test {

namespace {

// Only as much of the published binary layout as small archives use.
class RawPropertyList {
 public:
  explicit RawPropertyList(const Data& bytes) : bytes_(bytes) {
    const std::size_t trailer = bytes.size() - 32;
    offsetSize_ = bytes[trailer + 6];
    referenceSize_ = bytes[trailer + 7];
    count_ = number(trailer + 8, 8);
    offsetTable_ = number(trailer + 24, 8);
  }

  std::size_t count() const { return count_; }
  bool isDictionary(std::size_t object) const { return bytes_[offset(object)] >> 4U == 0xD; }
  std::vector<std::string> keys(std::size_t dictionary) const {
    std::size_t at = offset(dictionary);
    const std::size_t size = length(at);
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < size; ++i, at += referenceSize_) {
      keys.push_back(asciiText(number(at, referenceSize_)));
    }
    return keys;
  }

 private:
  std::size_t number(std::size_t at, std::size_t size) const {
    std::size_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8U | bytes_.at(at + i);
    return value;
  }
  std::size_t offset(std::size_t object) const {
    return number(offsetTable_ + object * offsetSize_, offsetSize_);
  }
  // The count behind a marker; moves `at` to the contents.
  std::size_t length(std::size_t& at) const {
    const std::size_t small = bytes_.at(at++) & 15U;
    if (small != 15) return small;
    const std::size_t size = std::size_t{1} << (bytes_.at(at++) & 15U);
    const std::size_t value = number(at, size);
    at += size;
    return value;
  }
  std::string asciiText(std::size_t object) const {
    std::size_t at = offset(object);
    const std::size_t size = length(at);
    return {bytes_.begin() + static_cast<std::ptrdiff_t>(at),
            bytes_.begin() + static_cast<std::ptrdiff_t>(at + size)};
  }

  const Data& bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t count_ = 0;
  std::size_t offsetTable_ = 0;
};

Value::Dictionary* findObject(Value& archive, std::string_view having) {
  auto& objects = *archive.getIf<Value::Dictionary>()->at("$objects").getIf<Value::Array>();
  for (Value& object : objects) {
    if (object.find(having) != nullptr) return object.getIf<Value::Dictionary>();
  }
  throw std::runtime_error("no encoded object has the key " + std::string(having));
}

}  // namespace

Data withEditedObject(const Data& archive, std::string_view having,
                      const std::function<void(Value::Dictionary& object)>& edit) {
  Value list = binaryPropertyListWithData(archive);
  edit(*findObject(list, having));
  return binaryDataWithPropertyList(list);
}

std::vector<std::string> encodedKeys(const Data& archive, std::string_view having) {
  const RawPropertyList list(archive);
  for (std::size_t object = 0; object < list.count(); ++object) {
    if (!list.isDictionary(object)) continue;
    auto keys = list.keys(object);
    if (std::find(keys.begin(), keys.end(), having) != keys.end()) return keys;
  }
  throw std::runtime_error("no encoded object has the key " + std::string(having));
}

Value::Dictionary encodedObject(const Data& archive, std::string_view having) {
  Value list = binaryPropertyListWithData(archive);
  return *findObject(list, having);
}

}  // namespace tervano::test
