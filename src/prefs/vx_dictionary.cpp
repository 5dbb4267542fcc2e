#include "prefs/vx_dictionary.h"

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {

std::optional<Value::Dictionary> vx_dictionaryByReplacingObject(
    const Value::Dictionary& dictionary, const Value& object,
    const std::optional<std::string>& key) {
  if (object.isNull() || !key) return std::nullopt;
  Value::Dictionary result = dictionary;
  result.insert_or_assign(*key, object);
  return result;
}

Value::Dictionary vx_dictionaryByMergingWithDictionary(
    const Value::Dictionary& dictionary, const std::optional<Value::Dictionary>& otherDictionary) {
  Value::Dictionary result = dictionary;
  if (!otherDictionary) return result;
  for (const auto& [key, value] : *otherDictionary) result.insert_or_assign(key, value);
  return result;
}

Value::Dictionary vx_dictionaryByRemovingNullValues(const Value::Dictionary& dictionary) {
  Value::Dictionary result;
  for (const auto& [key, value] : dictionary) {
    result.emplace(key, value.isNull() ? Value("") : value);
  }
  return result;
}

std::optional<Value::Dictionary> vx_dictionaryFromPropertyListWithName(const std::string& name) {
  return vx_dictionaryFromPropertyListWithName(name, *platform().bundle);
}

std::optional<Value::Dictionary> vx_dictionaryFromPropertyListWithName(const std::string& name,
                                                                       const Bundle& bundle) {
  const auto path = bundle.pathForResource(name, "plist");
  if (!path) return std::nullopt;
  return vx_dictionaryFromPropertyListAtPath(*path);
}

std::optional<Value::Dictionary> vx_dictionaryFromPropertyListAtPath(const std::string& path) {
  const auto bytes = platform().fileManager->contentsAtPath(path);
  if (!bytes) return std::nullopt;
  try {
    Value root = propertyListWithData(*bytes);
    auto* dictionary = root.getIf<Value::Dictionary>();
    if (dictionary == nullptr) return std::nullopt;
    return std::move(*dictionary);
  } catch (const PlatformException&) {
    return std::nullopt;
  }
}

}  // namespace tervano
