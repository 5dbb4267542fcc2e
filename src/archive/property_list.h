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
//
// Binary sets are read as arrays. XML has no element for a UID, which stands there as a dictionary
// with the only key "CF$UID", and holds dates in whole seconds. Markup declarations inside an XML
// document, entities above all, are refused.
inline constexpr int kMaximumPropertyListDepth = 512;

// Reads either encoding, told apart by its first bytes.
Value propertyListWithData(std::span<const std::uint8_t> bytes);
Value binaryPropertyListWithData(std::span<const std::uint8_t> bytes);
Value XMLPropertyListWithData(std::span<const std::uint8_t> bytes);

// Writes. A null, URL, UUID or object inside `value` throws PlatformException, since a property
// list cannot hold it, and so does nesting beyond the limit. Strings that are no UTF-8 are written
// with U+FFFD, keys that are none throw. Binary stores equal scalars once; XML throws for control
// characters and for dates outside the years 1 to 9999.
Data binaryDataWithPropertyList(const Value& value);
Data XMLDataWithPropertyList(const Value& value);

}  // namespace tervano
