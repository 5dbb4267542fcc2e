#include <string>
#include <vector>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/utf.h"
#include "archive/xml_text.h"

namespace tervano {
namespace {

constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFoot = "</plist>\n";

[[noreturn]] void refuseToWrite(const char* what) {
  throw PlatformException(kInvalidArgumentException, what);
}

// Walks a Value without recursion.
class XMLWriter {
 public:
  Data write(const Value& root) {
    out_ = kHead;
    add(root);
    while (!frames_.empty()) step();
    out_ += kFoot;
    return {out_.begin(), out_.end()};
  }

 private:
  struct Frame {
    const Value::Array* array;
    const Value::Dictionary* dictionary;
    std::size_t next;
    Value::Dictionary::const_iterator entry;
  };

  void indent() { out_.append(frames_.size(), '\t'); }

  void element(std::string_view tag, std::string_view text) {
    indent();
    out_.append("<").append(tag).append(">").append(text).append("</").append(tag).append(">\n");
  }

  static std::string escaped(const std::string& plain) {
    const std::string text = validUtf8(plain);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<std::uint8_t>(text[i]);
      // U+FFFE and U+FFFF are EF BF BE and EF BF BF.
      const bool noCharacter = byte == 0xEF && static_cast<std::uint8_t>(text[i + 1]) == 0xBF &&
                               static_cast<std::uint8_t>(text[i + 2]) >= 0xBE;
      if (noCharacter || (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r')) {
        refuseToWrite("XML cannot hold a control character; store such text as data");
      }
      switch (byte) {
        case '&':
          out += "&amp;";
          break;
        case '<':
          out += "&lt;";
          break;
        case '>':
          out += "&gt;";
          break;
        case '\r':
          // Bare, it would be read back as a line feed.
          out += "&#13;";
          break;
        default:
          out.push_back(text[i]);
      }
    }
    return out;
  }

  void add(const Value& value) {
    if (const auto* array = value.getIf<Value::Array>()) return push(array, nullptr);
    if (const auto* dictionary = value.getIf<Value::Dictionary>()) return push(nullptr, dictionary);
    if (const auto* text = value.getIf<std::string>()) return element("string", escaped(*text));
    if (const auto* boolean = value.getIf<bool>()) {
      indent();
      out_ += *boolean ? "<true/>\n" : "<false/>\n";
      return;
    }
    if (const auto* number = value.getIf<std::int64_t>()) {
      return element("integer", std::to_string(*number));
    }
    if (const auto* number = value.getIf<std::uint64_t>()) {
      return element("integer", std::to_string(*number));
    }
    if (const auto* number = value.getIf<double>()) return element("real", XMLTextOfReal(*number));
    if (const auto* date = value.getIf<Date>()) {
      const std::optional<std::string> text = XMLTextOfDate(*date);
      if (!text) refuseToWrite("XML cannot hold a date outside the years 1 to 9999");
      return element("date", *text);
    }
    if (const auto* uid = value.getIf<Uid>()) return addUid(uid->value);
    if (const auto* data = value.getIf<DataPtr>(); data != nullptr && *data != nullptr) {
      return addData(**data);
    }
    refuseToWrite("a property list holds no nil, URL, UUID or object");
  }

  void addData(const Data& data) {
    const std::string tabs(frames_.size(), '\t');
    out_.append(tabs).append("<data>\n");
    out_.append(base64XMLText(data, tabs));
    out_.append(tabs).append("</data>\n");
  }

  // XML has no element for a UID: it stands as a dictionary of this one key.
  void addUid(std::uint64_t uid) {
    if (frames_.size() >= kMaximumPropertyListDepth) {
      refuseToWrite("the property list is nested too deeply");
    }
    const std::string tabs(frames_.size(), '\t');
    out_.append(tabs).append("<dict>\n");
    out_.append(tabs).append("\t<key>CF$UID</key>\n");
    out_.append(tabs).append("\t<integer>").append(std::to_string(uid)).append("</integer>\n");
    out_.append(tabs).append("</dict>\n");
  }

  void push(const Value::Array* array, const Value::Dictionary* dictionary) {
    if (frames_.size() >= kMaximumPropertyListDepth) {
      refuseToWrite("the property list is nested too deeply");
    }
    indent();
    Frame frame{array, dictionary, 0, {}};
    if (dictionary != nullptr) frame.entry = dictionary->begin();
    const bool empty = array != nullptr ? array->empty() : dictionary->empty();
    if (empty) {
      out_ += array != nullptr ? "<array/>\n" : "<dict/>\n";
      return;
    }
    out_ += array != nullptr ? "<array>\n" : "<dict>\n";
    frames_.push_back(frame);
  }

  void step() {
    const std::size_t level = frames_.size() - 1;
    if (frames_[level].array != nullptr) {
      const Value::Array& array = *frames_[level].array;
      while (frames_[level].next < array.size()) {
        add(array[frames_[level].next++]);
        if (frames_.size() - 1 != level) return;
      }
    } else {
      const Value::Dictionary& dictionary = *frames_[level].dictionary;
      while (frames_[level].entry != dictionary.end()) {
        const auto& [key, value] = *frames_[level].entry++;
        if (!isValidUtf8(key)) refuseToWrite("a dictionary key that is no UTF-8");
        element("key", escaped(key));
        add(value);
        if (frames_.size() - 1 != level) return;
      }
    }
    const bool wasArray = frames_[level].array != nullptr;
    frames_.pop_back();
    indent();
    out_ += wasArray ? "</array>\n" : "</dict>\n";
  }

  std::string out_;
  std::vector<Frame> frames_;
};

}  // namespace

Data XMLDataWithPropertyList(const Value& value) {
  return XMLWriter().write(value);
}

}  // namespace tervano
