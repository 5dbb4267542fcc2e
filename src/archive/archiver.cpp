#include "archive/archiver.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "archive/binary_writer.h"
#include "archive/keyed_archive.h"
#include "archive/platform_exception.h"
#include "archive/unarchiver.h"
#include "archive/utf.h"

namespace tervano {
namespace {

using Reference = BinaryWriter::Reference;
using Pair = BinaryWriter::Pair;
// An index into "$objects".
using Entry = std::uint32_t;
constexpr Entry kNil = 0;

[[noreturn]] void refuseToArchive(const std::string& what) {
  throw PlatformException(kInvalidArchiveException, what);
}

}  // namespace

struct Archiver::Graph {
  explicit Graph(const ClassRegistry& classes) : registry(classes) {
    header = writer.reserveContainer();
    entries.push_back(writer.addString("$null"));
  }

  Entry encode(const Value& value, Archiver& archiver);
  Entry encodeObject(const Value::Object& object, Archiver& archiver);
  Entry encodeArray(const Value::Array& array, const std::vector<std::string>& chain,
                    Archiver& archiver);
  Entry encodeDictionary(const Value::Dictionary& dictionary, Archiver& archiver);
  Entry encodeUrl(const Url& url, Archiver& archiver);
  Entry encodeData(const DataPtr& data);

  Entry reserveEntry() {
    entries.push_back(0);
    return static_cast<Entry>(entries.size() - 1);
  }
  // One entry for equal strings and numbers.
  Entry entryOfScalar(Reference scalar) {
    if (scalar >= scalarEntries.size()) scalarEntries.resize(scalar + scalar / 2 + 16);
    Entry& entry = scalarEntries[scalar];
    if (entry == 0) {
      entry = static_cast<Entry>(entries.size());
      entries.push_back(scalar);
    }
    return entry;
  }
  Reference uid(Entry entry) { return writer.addUid(entry); }

  // The fields of the object being encoded are those from `begin` on.
  std::size_t open() {
    if (++depth > Unarchiver::kMaximumArchiveDepth)
      refuseToArchive("the objects are nested too deeply");
    const std::size_t begin = fieldsBegin;
    fieldsBegin = fields.size();
    return begin;
  }
  // Adds the class and lays the object down as `entry`; its description follows its contents.
  void close(std::size_t begin, Entry entry, const std::vector<std::string>& chain) {
    const Entry description = describe(chain);
    fields.emplace_back(writer.addString("$class"), uid(description));
    const Reference dictionary = writer.reserveContainer();
    writer.setDictionary(dictionary, std::span(fields).subspan(fieldsBegin));
    entries[entry] = dictionary;
    fields.resize(fieldsBegin);
    fieldsBegin = begin;
    --depth;
  }
  void addField(std::string_view key, Reference value) {
    std::string storage;
    const Reference name = writer.addString(archiveKey(key, storage));
    for (std::size_t i = fieldsBegin; i < fields.size(); ++i) {
      if (fields[i].first == name)
        refuseToArchive("the key " + std::string(key) + " is encoded twice");
    }
    fields.emplace_back(name, value);
  }
  Reference uidArray(std::span<const Entry> members) {
    std::vector<Reference> references;
    references.reserve(members.size());
    for (const Entry member : members) references.push_back(uid(member));
    const Reference array = writer.reserveContainer();
    writer.setArray(array, references);
    return array;
  }
  Entry describe(const std::vector<std::string>& chain);
  Data finish(Entry root);

  const ClassRegistry& registry;
  BinaryWriter writer;
  Reference header = 0;
  // The object of each entry.
  std::vector<Reference> entries;
  // By the reference of the scalar; 0 where it is no entry yet.
  std::vector<Entry> scalarEntries;
  // These hold what they have seen, so that no address is used for a second object meanwhile.
  std::unordered_map<Value::Object, Entry> objectEntries;
  std::unordered_map<DataPtr, Entry> dataEntries;
  // Objects whose contents are being written.
  std::vector<const Coding*> path;
  std::unordered_map<std::string, Entry> descriptions;
  std::vector<Pair> fields;
  std::size_t fieldsBegin = 0;
  int depth = 0;
};

namespace {

const std::vector<std::string>& chainOf(std::string_view name) {
  static const std::vector<std::string> kChains[] = {
      {"NSArray", "NSObject"},      {"NSMutableArray", "NSArray", "NSObject"},
      {"NSDictionary", "NSObject"}, {"NSMutableString", "NSString", "NSObject"},
      {"NSDate", "NSObject"},       {"NSUUID", "NSObject"},
      {"NSURL", "NSObject"}};
  return *std::find_if(std::begin(kChains), std::end(kChains),
                       [&](const auto& chain) { return chain.front() == name; });
}

}  // namespace

Entry Archiver::Graph::describe(const std::vector<std::string>& chain) {
  Entry& entry = descriptions[chain.front()];
  if (entry != 0) return entry;
  std::vector<Reference> names;
  names.reserve(chain.size());
  for (const std::string& name : chain) names.push_back(writer.addString(name));
  const Reference classes = writer.reserveContainer();
  writer.setArray(classes, names);
  const Pair pairs[] = {{writer.addString("$classname"), names.front()},
                        {writer.addString("$classes"), classes}};
  const Reference description = writer.reserveContainer();
  writer.setDictionary(description, pairs);
  entry = static_cast<Entry>(entries.size());
  entries.push_back(description);
  return entry;
}

Entry Archiver::Graph::encode(const Value& value, Archiver& archiver) {
  if (value.isNull()) return kNil;
  if (const auto* text = value.getIf<std::string>()) {
    if (*text != "$null") return entryOfScalar(writer.addString(*text));
    // As a plain string it would be read as nil.
    const Entry entry = reserveEntry();
    const std::size_t begin = open();
    addField("NS.string", writer.addString(*text));
    close(begin, entry, chainOf("NSMutableString"));
    return entry;
  }
  if (const auto* object = value.getIf<Value::Object>()) return encodeObject(*object, archiver);
  if (const auto* boolean = value.getIf<bool>()) return entryOfScalar(writer.addBool(*boolean));
  if (const auto* number = value.getIf<std::int64_t>()) {
    return entryOfScalar(writer.addInteger(*number));
  }
  if (const auto* number = value.getIf<std::uint64_t>()) {
    return entryOfScalar(writer.addUnsigned(*number));
  }
  if (const auto* number = value.getIf<double>()) return entryOfScalar(writer.addReal(*number));
  if (const auto* array = value.getIf<Value::Array>()) {
    return encodeArray(*array, chainOf("NSArray"), archiver);
  }
  if (const auto* dictionary = value.getIf<Value::Dictionary>()) {
    return encodeDictionary(*dictionary, archiver);
  }
  if (const auto* url = value.getIf<Url>()) return encodeUrl(*url, archiver);
  if (const auto* data = value.getIf<DataPtr>()) return encodeData(*data);
  if (const auto* date = value.getIf<Date>()) {
    const Entry entry = reserveEntry();
    const std::size_t begin = open();
    addField("NS.time", writer.addReal(date->secondsSinceReferenceDate));
    close(begin, entry, chainOf("NSDate"));
    return entry;
  }
  if (const auto* uuid = value.getIf<Uuid>()) {
    const Entry entry = reserveEntry();
    const std::size_t begin = open();
    addField("NS.uuidbytes",
             writer.addData(std::make_shared<const Data>(uuid->bytes.begin(), uuid->bytes.end())));
    close(begin, entry, chainOf("NSUUID"));
    return entry;
  }
  refuseToArchive("a bare UID cannot be archived");
}

Entry Archiver::Graph::encodeObject(const Value::Object& object, Archiver& archiver) {
  if (object == nullptr) return kNil;
  const auto known = objectEntries.find(object);
  if (known != objectEntries.end()) {
    if (std::find(path.begin(), path.end(), object.get()) != path.end()) {
      refuseToArchive("an object that contains itself");
    }
    return known->second;
  }
  const std::string_view name = object->className();
  const std::vector<std::string>* chain = registry.chain(name);
  if (chain == nullptr) refuseToArchive("the class " + std::string(name) + " is not registered");
  const Entry entry = reserveEntry();
  objectEntries.emplace(object, entry);
  path.push_back(object.get());
  const std::size_t begin = open();
  object->encodeWithCoder(archiver);
  close(begin, entry, *chain);
  path.pop_back();
  return entry;
}

Entry Archiver::Graph::encodeArray(const Value::Array& array, const std::vector<std::string>& chain,
                                   Archiver& archiver) {
  const Entry entry = reserveEntry();
  const std::size_t begin = open();
  std::vector<Entry> members;
  members.reserve(array.size());
  for (const Value& member : array) members.push_back(encode(member, archiver));
  addField("NS.objects", uidArray(members));
  close(begin, entry, chain);
  return entry;
}

Entry Archiver::Graph::encodeDictionary(const Value::Dictionary& dictionary, Archiver& archiver) {
  const Entry entry = reserveEntry();
  const std::size_t begin = open();
  std::vector<Entry> keys;
  std::vector<Entry> values;
  keys.reserve(dictionary.size());
  values.reserve(dictionary.size());
  for (const auto& [key, value] : dictionary) {
    // With replacement characters two keys could become one.
    if (!isValidUtf8(key)) refuseToArchive("a dictionary key that is no UTF-8");
    keys.push_back(encode(key, archiver));
  }
  for (const auto& [key, value] : dictionary) values.push_back(encode(value, archiver));
  addField("NS.keys", uidArray(keys));
  addField("NS.objects", uidArray(values));
  close(begin, entry, chainOf("NSDictionary"));
  return entry;
}

Entry Archiver::Graph::encodeUrl(const Url& url, Archiver& archiver) {
  const Entry entry = reserveEntry();
  const std::size_t begin = open();
  addField("NS.base", uid(kNil));
  addField("NS.relative", uid(encode(url.absoluteString(), archiver)));
  close(begin, entry, chainOf("NSURL"));
  return entry;
}

Entry Archiver::Graph::encodeData(const DataPtr& data) {
  if (data == nullptr) return kNil;
  const auto [known, isNew] = dataEntries.try_emplace(data, static_cast<Entry>(entries.size()));
  if (isNew) entries.push_back(writer.addData(data));
  return known->second;
}

Data Archiver::Graph::finish(Entry root) {
  // A class that catches what one of its fields throws must not leave half of it here.
  if (depth != 0) refuseToArchive("an object was left half written");
  const Pair top[] = {{writer.addString("root"), uid(root)}};
  const Reference topDictionary = writer.reserveContainer();
  writer.setDictionary(topDictionary, top);
  const Reference objects = writer.reserveContainer();
  writer.setArray(objects, entries);
  const Pair pairs[] = {{writer.addString("$version"), writer.addInteger(100000)},
                        {writer.addString("$archiver"), writer.addString("NSKeyedArchiver")},
                        {writer.addString("$top"), topDictionary},
                        {writer.addString("$objects"), objects}};
  writer.setDictionary(header, pairs);
  return writer.finish(header);
}

Archiver::Archiver(const ClassRegistry& registry) : graph_(std::make_unique<Graph>(registry)) {}

Archiver::~Archiver() = default;

Data Archiver::archivedDataWithRootObject(const Value& root, const ClassRegistry& registry) {
  Archiver archiver(registry);
  const Entry entry = archiver.graph_->encode(root, archiver);
  return archiver.graph_->finish(entry);
}

void Archiver::encodeBool(bool value, std::string_view key) {
  graph_->addField(key, graph_->writer.addBool(value));
}

void Archiver::encodeInteger(std::int64_t value, std::string_view key) {
  graph_->addField(key, graph_->writer.addInteger(value));
}

void Archiver::encodeDouble(double value, std::string_view key) {
  graph_->addField(key, graph_->writer.addReal(value));
}

void Archiver::encodeObject(const Value& value, std::string_view key) {
  graph_->addField(key, graph_->uid(graph_->encode(value, *this)));
}

void Archiver::encodeMutableArray(const Value::Array& value, std::string_view key) {
  const Entry entry = graph_->encodeArray(value, chainOf("NSMutableArray"), *this);
  graph_->addField(key, graph_->uid(entry));
}

void Archiver::encodeBytes(const DataPtr& bytes, std::string_view key) {
  graph_->addField(key, bytes == nullptr ? graph_->uid(kNil) : graph_->writer.addData(bytes));
}

}  // namespace tervano
