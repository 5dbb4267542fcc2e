#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/value.h"

namespace tervano {

// Builds the object table of a binary property list and lays the file out. Equal scalars become one
// object. A container may be reserved before its members exist, so the caller decides the order of
// objects; data is held by reference until `finish` copies it once.
class BinaryWriter {
 public:
  using Reference = std::uint32_t;
  using Pair = std::pair<Reference, Reference>;

  BinaryWriter();

  Reference addBool(bool value);
  Reference addInteger(std::int64_t value);
  Reference addUnsigned(std::uint64_t value);
  Reference addReal(double value);
  Reference addDate(Date value);
  // Broken UTF-8 is written with U+FFFD.
  Reference addString(std::string_view text);
  Reference addData(const DataPtr& data);
  Reference addUid(std::uint64_t value);

  // An object whose content one of the two functions below gives before `finish`.
  Reference reserveContainer();
  void setArray(Reference container, std::span<const Reference> members);
  void setDictionary(Reference container, std::span<const Pair> pairs);

  // The whole file. The writer is spent afterwards.
  Data finish(Reference root);

 private:
  enum class Kind : std::uint8_t { Scalar, Data, Array, Dictionary };
  struct Object {
    Kind kind;
    // Into scalars_, blocks_ or members_, by the kind.
    std::size_t start;
    // Bytes of a scalar, members of an array, pairs of a dictionary.
    std::size_t count;
  };
  struct Slot {
    std::uint32_t hash = 0;
    // The reference plus one; 0 marks a free slot.
    std::uint32_t used = 0;
  };

  Reference append(Object object);
  // Makes an object of what stands in scalars_ from `start` on, or finds its equal.
  Reference addScalar(std::size_t start);
  Reference addNumber(std::uint8_t marker, std::uint64_t bits);
  template <typename Equal>
  Reference findOrInsert(std::uint32_t hash, Object object, Equal equal);
  void grow();

  std::vector<Object> objects_;
  std::vector<std::uint8_t> scalars_;
  std::vector<DataPtr> blocks_;
  std::vector<Reference> members_;
  std::vector<Slot> slots_;
  std::size_t usedSlots_ = 0;
};

}  // namespace tervano
