#include <expat.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

#include "archive/object_table.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/xml_text.h"

namespace tervano {

// Reads an XML property list into a table. The parser calls back for each element; open containers
// stand on a stack of our own. Nothing may be thrown through the parser, which is C: a handler
// notes the complaint, stops the parser, and `read` throws.
class XMLTableReader {
 public:
  explicit XMLTableReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  ObjectTable read() {
    if (bytes_.size() > INT_MAX) refuse("too long");
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                         XML_ParserFree);
    if (parser == nullptr) throw std::bad_alloc();
    parser_ = parser.get();
    XML_SetUserData(parser_, this);
    XML_SetElementHandler(parser_, &onStart, &onEnd);
    XML_SetCharacterDataHandler(parser_, &onText);
    XML_SetStartDoctypeDeclHandler(parser_, &onDoctype);
    XML_SetEntityDeclHandler(parser_, &onEntity);
    XML_SetSkippedEntityHandler(parser_, &onSkippedEntity);
    // In one piece, so that no token is scanned twice.
    const XML_Status status = XML_Parse(parser_, reinterpret_cast<const char*>(bytes_.data()),
                                        static_cast<int>(bytes_.size()), XML_TRUE);
    if (failure_) std::rethrow_exception(failure_);
    if (!complaint_.empty()) refuse(complaint_ + " in line " + std::to_string(line_));
    if (status != XML_STATUS_OK) {
      refuse(std::string(XML_ErrorString(XML_GetErrorCode(parser_))) + " in line " +
             std::to_string(XML_GetCurrentLineNumber(parser_)));
    }
    if (!root_) refuse("no value");
    table_.root_ = *root_;
    table_.referenceWidth_ = kReferenceWidth;
    // A table of booleans has no payload, yet its containers are read from the pool.
    if (table_.pool_.empty()) table_.pool_.push_back(0);
    return std::move(table_);
  }

 private:
  using Kind = ObjectTable::Kind;
  using Index = ObjectTable::Index;
  static constexpr unsigned kReferenceWidth = 4;

  enum class Tag { Plist, Array, Dictionary, Key, String, Data, Date, Integer, Real, True, False };

  struct Frame {
    Tag tag;
    // Where the members of this container begin in members_.
    std::size_t firstMember;
  };

  [[noreturn]] static void refuse(const std::string& what) {
    throw PlatformException(kInvalidArgumentException, "malformed XML property list: " + what);
  }

  static std::optional<Tag> tagOf(std::string_view name) {
    static constexpr std::pair<std::string_view, Tag> kTags[] = {
        {"plist", Tag::Plist}, {"array", Tag::Array},     {"dict", Tag::Dictionary},
        {"key", Tag::Key},     {"string", Tag::String},   {"data", Tag::Data},
        {"date", Tag::Date},   {"integer", Tag::Integer}, {"real", Tag::Real},
        {"true", Tag::True},   {"false", Tag::False}};
    for (const auto& [tagName, tag] : kTags) {
      if (tagName == name) return tag;
    }
    return std::nullopt;
  }

  static bool holdsElements(Tag tag) {
    return tag == Tag::Plist || tag == Tag::Array || tag == Tag::Dictionary;
  }

  // Runs one step of a handler; once something was complained of, nothing runs any more.
  template <typename Step>
  static void guarded(void* self, Step step) {
    auto& reader = *static_cast<XMLTableReader*>(self);
    if (!reader.complaint_.empty() || reader.failure_) return;
    try {
      step(reader);
    } catch (...) {
      reader.failure_ = std::current_exception();
      XML_StopParser(reader.parser_, XML_FALSE);
    }
  }

  static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char**) {
    guarded(self, [&](XMLTableReader& reader) { reader.start(name); });
  }
  static void XMLCALL onEnd(void* self, const XML_Char*) {
    guarded(self, [](XMLTableReader& reader) { reader.end(); });
  }
  static void XMLCALL onText(void* self, const XML_Char* text, int length) {
    guarded(self, [&](XMLTableReader& reader) {
      reader.text({text, static_cast<std::size_t>(length)});
    });
  }
  // A document type's own declarations are where entities and default attributes come from.
  static void XMLCALL onDoctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                                int hasInternalSubset) {
    guarded(self, [&](XMLTableReader& reader) {
      if (hasInternalSubset != 0) reader.complain("declarations in the document type");
    });
  }
  static void XMLCALL onEntity(void* self, const XML_Char*, int, const XML_Char*, int,
                               const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
    guarded(self, [](XMLTableReader& reader) { reader.complain("an entity declaration"); });
  }
  static void XMLCALL onSkippedEntity(void* self, const XML_Char*, int) {
    guarded(self, [](XMLTableReader& reader) { reader.complain("an undefined entity"); });
  }

  void complain(std::string what) {
    complaint_ = std::move(what);
    line_ = XML_GetCurrentLineNumber(parser_);
    XML_StopParser(parser_, XML_FALSE);
  }

  void start(std::string_view name) {
    const std::optional<Tag> tag = tagOf(name);
    if (!tag) return complain("an unknown element");
    if (frames_.empty()) {
      if (*tag != Tag::Plist) return complain("a document that is no plist");
    } else {
      const Frame& parent = frames_.back();
      if (*tag == Tag::Plist) return complain("a plist inside another");
      if (!holdsElements(parent.tag)) return complain("an element inside a scalar");
      if (parent.tag == Tag::Plist && root_) return complain("more than one value");
      // In a dictionary keys and values take turns.
      const bool keyIsDue =
          parent.tag == Tag::Dictionary && (members_.size() - parent.firstMember) % 2 == 0;
      if ((*tag == Tag::Key) != keyIsDue) {
        return complain(keyIsDue ? "a value without a key" : "a key without a value");
      }
    }
    // The plist element, and a scalar in the deepest container, come on top.
    if (frames_.size() >= kMaximumPropertyListDepth + (holdsElements(*tag) ? 1 : 2)) {
      return complain("nesting too deep");
    }
    frames_.push_back({*tag, members_.size()});
    text_.clear();
  }

  void text(std::string_view text) {
    if (frames_.empty()) return;
    if (holdsElements(frames_.back().tag)) {
      if (!isXMLBlank(text)) complain("text between elements");
      return;
    }
    text_.append(text);
  }

  void end() {
    const Frame frame = frames_.back();
    frames_.pop_back();
    switch (frame.tag) {
      case Tag::Plist:
        return;
      case Tag::Array:
        return endContainer(frame, Kind::Array);
      case Tag::Dictionary:
        return endDictionary(frame);
      case Tag::Key:
      case Tag::String:
        return addBytes(Kind::Utf8, text_);
      case Tag::Data:
        return endData();
      case Tag::Date: {
        const std::optional<Date> date = dateOfXMLText(text_);
        if (!date) return complain("a date that is none");
        return addNumber(Kind::Date, std::bit_cast<std::uint64_t>(date->secondsSinceReferenceDate));
      }
      case Tag::Integer: {
        const std::optional<Value> number = integerOfXMLText(text_);
        if (!number) return complain("an integer that is none");
        if (const auto* plain = number->getIf<std::int64_t>()) {
          return addNumber(Kind::Integer, static_cast<std::uint64_t>(*plain));
        }
        return addWideNumber(*number->getIf<std::uint64_t>());
      }
      case Tag::Real: {
        const std::optional<double> number = realOfXMLText(text_);
        if (!number) return complain("a real that is none");
        return addNumber(Kind::Real, std::bit_cast<std::uint64_t>(*number));
      }
      case Tag::True:
      case Tag::False:
        if (!text_.empty()) return complain("text inside a boolean");
        return add(frame.tag == Tag::True ? Kind::True : Kind::False, 0, 0);
    }
  }

  void add(Kind kind, std::size_t offset, std::size_t count) {
    const auto object = static_cast<Index>(table_.objects_.size());
    table_.objects_.push_back(
        {static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(count), kind});
    text_.clear();
    if (frames_.back().tag == Tag::Plist) {
      root_ = object;
    } else {
      members_.push_back(object);
    }
  }

  void addBytes(Kind kind, std::string_view bytes) {
    const std::size_t offset = table_.pool_.size();
    table_.pool_.insert(table_.pool_.end(), bytes.begin(), bytes.end());
    add(kind, offset, bytes.size());
  }

  void append(std::uint64_t bits, unsigned width) {
    for (unsigned i = width; i > 0; --i) {
      table_.pool_.push_back(static_cast<std::uint8_t>(bits >> (8 * (i - 1))));
    }
  }

  void addNumber(Kind kind, std::uint64_t bits) {
    const std::size_t offset = table_.pool_.size();
    append(bits, 8);
    add(kind, offset, 8);
  }

  void addWideNumber(std::uint64_t value) {
    const std::size_t offset = table_.pool_.size();
    append(0, 8);
    append(value, 8);
    add(Kind::Integer, offset, 16);
  }

  void endData() {
    const std::size_t offset = table_.pool_.size();
    if (!appendBase64XMLText(text_, table_.pool_)) return complain("data that is no Base64");
    add(Kind::Data, offset, table_.pool_.size() - offset);
  }

  void endContainer(const Frame& frame, Kind kind) {
    const std::size_t offset = table_.pool_.size();
    std::size_t count = members_.size() - frame.firstMember;
    const std::size_t step = kind == Kind::Dictionary ? 2 : 1;
    for (std::size_t first = 0; first < step; ++first) {
      for (std::size_t i = first; i < count; i += step) {
        append(members_[frame.firstMember + i], kReferenceWidth);
      }
    }
    members_.resize(frame.firstMember);
    add(kind, offset, count / step);
  }

  void endDictionary(const Frame& frame) {
    const std::size_t count = members_.size() - frame.firstMember;
    if (count % 2 != 0) return complain("a key without a value");
    if (count == 2 && endUid(frame)) return;
    std::unordered_set<std::string_view> keys;
    for (std::size_t i = frame.firstMember; i < members_.size(); i += 2) {
      const ObjectTable::Object& key = table_.objects_[members_[i]];
      const char* const text = reinterpret_cast<const char*>(table_.pool_.data()) + key.offset;
      if (!keys.insert({text, key.count}).second) return complain("a key that stands twice");
    }
    endContainer(frame, Kind::Dictionary);
  }

  // XML has no element for a UID: it stands as a dictionary of this one key.
  bool endUid(const Frame& frame) {
    const ObjectTable::Object& key = table_.objects_[members_[frame.firstMember]];
    const ObjectTable::Object& number = table_.objects_[members_[frame.firstMember + 1]];
    static constexpr std::string_view kName = "CF$UID";
    const bool named = key.count == kName.size() &&
                       std::equal(kName.begin(), kName.end(), table_.pool_.begin() + key.offset);
    if (!named || number.kind != Kind::Integer) return false;
    const bool wide = number.count == 16;
    if (!wide && table_.pool_[number.offset] > INT8_MAX) return false;
    const std::size_t offset = number.offset + (wide ? 8 : 0);
    members_.resize(frame.firstMember);
    add(Kind::Uid, offset, 8);
    return true;
  }

  std::span<const std::uint8_t> bytes_;
  ObjectTable table_;
  XML_Parser parser_ = nullptr;
  std::vector<Frame> frames_;
  std::vector<Index> members_;
  std::string text_;
  std::optional<Index> root_;
  std::string complaint_;
  XML_Size line_ = 0;
  std::exception_ptr failure_;
};

ObjectTable ObjectTable::readXML(std::span<const std::uint8_t> bytes) {
  return XMLTableReader(bytes).read();
}

}  // namespace tervano
