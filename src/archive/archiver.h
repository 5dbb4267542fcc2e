#pragma once

#include <memory>
#include <string_view>

#include "archive/coding.h"
#include "archive/value.h"

namespace tervano {

// Writes an object graph in the published keyed-archive layout: a binary property list with
// "$version" 100000, "$archiver" "NSKeyedArchiver", "$top" and "$objects". Equal strings and
// numbers are one entry each, one object is one entry wherever it appears. Arrays and dictionaries
// inside a Value are written as NSArray and NSDictionary, numbers as plain values, nil as entry 0.
//
// Throws PlatformException for a class that is not registered, a bare UID, a key encoded twice, an
// object that contains itself and nesting beyond Unarchiver::kMaximumArchiveDepth, because no
// reader could load such a file again. Strings that are no UTF-8 are written with U+FFFD.
//
// The encode functions are for Coding::encodeWithCoder and write into the object being encoded.
class Archiver {
 public:
  static Data archivedDataWithRootObject(const Value& root, const ClassRegistry& registry);

  void encodeBool(bool value, std::string_view key);
  void encodeInteger(std::int64_t value, std::string_view key);
  void encodeDouble(double value, std::string_view key);
  // Everything by reference; null is written as nil, its key included.
  void encodeObject(const Value& value, std::string_view key);
  // An NSMutableArray instead of the NSArray that encodeObject writes.
  void encodeMutableArray(const Value::Array& value, std::string_view key);
  // Raw bytes inline, without an entry of their own.
  void encodeBytes(const DataPtr& bytes, std::string_view key);

  Archiver(const Archiver&) = delete;
  Archiver& operator=(const Archiver&) = delete;
  ~Archiver();

 private:
  struct Graph;
  explicit Archiver(const ClassRegistry& registry);
  std::unique_ptr<Graph> graph_;
};

}  // namespace tervano
