#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/archiver.h"
#include "archive/coding.h"
#include "archive/unarchiver.h"

namespace tervano::testing {

// A record with a field of each kind.
class Sample : public Coding {
 public:
  std::string_view className() const override { return "Sample"; }
  void initWithCoder(Unarchiver& coder) override {
    enabled = coder.decodeBool("enabled");
    count = coder.decodeInteger("count");
    ratio = coder.decodeDouble("ratio");
    title = coder.decodeString("title");
    types = coder.decodeStringArray("types");
    url = coder.decodeUrl("url");
    bytes = coder.decodeBytes("bytes");
    any = coder.decodeObject("any");
    friendSample = coder.decodeObjectOfClass<Sample>("friend");
  }
  void encodeWithCoder(Archiver& coder) const override {
    coder.encodeBool(enabled, "enabled");
    coder.encodeInteger(count, "count");
    coder.encodeDouble(ratio, "ratio");
    coder.encodeObject(title, "title");
    if (types) {
      Value::Array array(types->begin(), types->end());
      coder.encodeObject(array, "types");
    } else {
      coder.encodeObject(nullptr, "types");
    }
    coder.encodeObject(url, "url");
    coder.encodeBytes(bytes, "bytes");
    coder.encodeObject(any, "any");
    coder.encodeObject(friendSample, "friend");
  }

  bool enabled = false;
  std::int64_t count = 0;
  double ratio = 0;
  std::optional<std::string> title;
  std::optional<std::vector<std::string>> types;
  std::optional<Url> url;
  DataPtr bytes;
  Value any;
  std::shared_ptr<Sample> friendSample;
};

class DerivedSample : public Sample {
 public:
  std::string_view className() const override { return "DerivedSample"; }
};

// Holds others in a mutable array.
class Group : public Coding {
 public:
  std::string_view className() const override { return "Group"; }
  void initWithCoder(Unarchiver& coder) override { members = coder.decodeArray("members"); }
  void encodeWithCoder(Archiver& coder) const override {
    coder.encodeMutableArray(members.value_or(Value::Array()), "members");
  }

  std::optional<Value::Array> members;
};

inline const ClassRegistry& sampleRegistry() {
  static const ClassRegistry registry = [] {
    ClassRegistry classes;
    classes.registerClass({"Sample", "NSObject"}, [] { return std::make_shared<Sample>(); });
    classes.registerClass({"DerivedSample", "Sample", "NSObject"},
                          [] { return std::make_shared<DerivedSample>(); });
    classes.registerClass({"Group", "Sample", "NSObject"},
                          [] { return std::make_shared<Group>(); });
    classes.registerClass({"Abstract", "NSObject"}, nullptr);
    return classes;
  }();
  return registry;
}

inline Data archived(const Value& root) {
  return Archiver::archivedDataWithRootObject(root, sampleRegistry());
}

inline Value unarchived(const Data& bytes) {
  return Unarchiver::unarchiveObjectWithData(bytes, sampleRegistry());
}

template <typename T>
std::shared_ptr<T> objectOf(const Value& value) {
  const auto* object = value.getIf<Value::Object>();
  return object == nullptr ? nullptr : std::dynamic_pointer_cast<T>(*object);
}

}  // namespace tervano::testing
