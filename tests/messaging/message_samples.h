#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "archive/archiver.h"
#include "archive/coding.h"
#include "archive/unarchiver.h"
#include "archive/value.h"

namespace tervano::test {

// An archivable object of the tests.
class Note : public Coding {
 public:
  Note() = default;
  explicit Note(std::string text) : text_(std::move(text)) {}
  std::string_view className() const override { return "TestNote"; }
  void initWithCoder(Unarchiver& coder) override {
    text_ = coder.decodeString("text").value_or("");
  }
  void encodeWithCoder(Archiver& coder) const override { coder.encodeObject(text_, "text"); }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// A class that no registry knows.
class Stranger : public Note {
 public:
  std::string_view className() const override { return "TestStranger"; }
};

// A registry that knows TestNote.
inline const ClassRegistry& noteRegistry() {
  static const ClassRegistry registry = [] {
    ClassRegistry made;
    made.registerClass({"TestNote", "NSObject"}, [] { return std::make_shared<Note>(); });
    return made;
  }();
  return registry;
}

// One message of every kind that compares by content.
inline std::vector<std::pair<std::string, Value>> messageSamples() {
  return {
      {"text", "hello"},
      {"empty text", ""},
      {"text beyond ASCII", "gr\xc3\xbc\xc3\x9f dich \xf0\x9f\x91\x8b"},
      {"true", true},
      {"false", false},
      {"zero", 0},
      {"smallest integer", INT64_MIN},
      {"largest integer", INT64_MAX},
      {"real", 0.1},
      {"date", Date{12345.5}},
      {"data", Data{0, 1, 255}},
      {"empty data", Data{}},
      {"url", Url::fileURLWithPath("/tmp/a b")},
      {"empty array", Value::Array{}},
      {"array", Value::Array{1, "two", Value::Array{3.5}}},
      {"empty dictionary", Value::Dictionary{}},
      {"dictionary", Value::Dictionary{{"a", 1}, {"b", Value::Dictionary{{"c", "d"}}}}},
      {"long text", std::string(1'000'000, 'x')},
  };
}

// The message number `number`, from 1, of a flood of `count`: mostly signals without object, since
// each stored object is flushed to the disk; now and then, and at the end, the number itself.
inline Value floodMessage(std::int64_t number, std::int64_t count) {
  return number % 50 == 0 || number == count ? Value(number) : Value();
}

}  // namespace tervano::test
