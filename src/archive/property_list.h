#pragma once

#include <span>

#include "archive/value.h"

namespace tervano {

// Property lists as one Value, in the two published encodings.
//
// Binary: "bplist00", object table, offset table, 32-byte trailer. XML: the PropertyList-1.0
// document type. Every function is pure and may be called on any thread. Reading throws
// PlatformException (kInvalidArgumentException) for anything malformed, for nesting beyond
// kMaximumPropertyListDepth and for a container that contains itself; it never allocates more than
// a small multiple of the input and never recurses by the input's depth.
inline constexpr int kMaximumPropertyListDepth = 512;

// Reads either encoding, told apart by its first bytes.
Value propertyListWithData(std::span<const std::uint8_t> bytes);
Value binaryPropertyListWithData(std::span<const std::uint8_t> bytes);
Value XMLPropertyListWithData(std::span<const std::uint8_t> bytes);

// Writes. A null, URL, UUID or object inside `value` throws PlatformException, since a property
// list cannot hold it. Equal scalars are stored once.
Data binaryDataWithPropertyList(const Value& value);
Data XMLDataWithPropertyList(const Value& value);

}  // namespace tervano
