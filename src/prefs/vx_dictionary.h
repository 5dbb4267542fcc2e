#pragma once

#include <optional>
#include <string>

#include "archive/value.h"
#include "platform/bundle.h"

namespace tervano {

// Dictionaries made from others, which stay as they are, and from property-list files. A null Value
// is nil where an object is passed, and the null placeholder where it is an entry. Any thread; what
// loads a file blocks.

// The dictionary with `object` under `key`, in place of an entry or as one more. A nil object or
// key gives nil, not the dictionary.
std::optional<Value::Dictionary> vx_dictionaryByReplacingObject(
    const Value::Dictionary& dictionary, const Value& object,
    const std::optional<std::string>& key);

// The entries of both; of a key in both, the other dictionary's. Shallow: an inner dictionary is
// replaced as a whole. A nil `otherDictionary` adds nothing.
Value::Dictionary vx_dictionaryByMergingWithDictionary(
    const Value::Dictionary& dictionary, const std::optional<Value::Dictionary>& otherDictionary);

// The same keys with "" wherever the null placeholder stood. Nulls deeper inside stay.
Value::Dictionary vx_dictionaryByRemovingNullValues(const Value::Dictionary& dictionary);

// The resource `name`.plist of the product, or of another bundle; nil when there is none, and as
// below.
std::optional<Value::Dictionary> vx_dictionaryFromPropertyListWithName(const std::string& name);
std::optional<Value::Dictionary> vx_dictionaryFromPropertyListWithName(const std::string& name,
                                                                       const Bundle& bundle);

// The property list in a file, in either encoding; nil, and nothing said, when the file cannot be
// read, is no property list, or holds something else than a dictionary.
std::optional<Value::Dictionary> vx_dictionaryFromPropertyListAtPath(const std::string& path);

}  // namespace tervano
