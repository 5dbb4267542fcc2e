// Two independent programs read what we write, and we read what they write.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "archive/archiver.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/child_process.h"
#include "tests/archive/sample_classes.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using testing::objectOf;
using testing::runProgram;
using testing::Sample;

constexpr char kPython[] = "/usr/bin/python3";
constexpr char kConverter[] = "/usr/bin/plistutil";

std::string hexOf(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const std::uint8_t byte : bytes) {
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
  }
  return out;
}

std::string hexOf(std::string_view text) {
  return hexOf({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::string hexOf(double number) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx",
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(number)));
  return text;
}

// The same line as plist_tool.py makes of a value.
std::string describe(const Value& value) {
  if (const auto* boolean = value.getIf<bool>()) return *boolean ? "true" : "false";
  if (const auto* number = value.getIf<std::int64_t>()) return "i" + std::to_string(*number);
  if (const auto* number = value.getIf<std::uint64_t>()) return "i" + std::to_string(*number);
  if (const auto* number = value.getIf<double>()) return "r" + hexOf(*number);
  if (const auto* text = value.getIf<std::string>()) return "s" + hexOf(*text);
  if (const auto* data = value.getIf<DataPtr>()) return "d" + hexOf(**data);
  if (const auto* date = value.getIf<Date>()) return "t" + hexOf(date->secondsSinceReferenceDate);
  if (const auto* uid = value.getIf<Uid>()) return "u" + std::to_string(uid->value);
  std::string out;
  if (const auto* array = value.getIf<Value::Array>()) {
    for (const Value& member : *array) out += (out.empty() ? "" : " ") + describe(member);
    return "[" + out + "]";
  }
  for (const auto& [key, member] : *value.getIf<Value::Dictionary>()) {
    out += (out.empty() ? "" : " ") + hexOf(key) + ":" + describe(member);
  }
  return "{" + out + "}";
}

class ForeignReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "tervano-archive-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  static std::string script() { return std::string(TERVANO_ARCHIVE_SCRIPTS) + "/plist_tool.py"; }

  void write(const std::string& name, const Data& bytes) const {
    std::ofstream file(path(name), std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(file.good());
  }
  Data read(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    EXPECT_TRUE(file.good()) << name;
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string readText(const std::string& name) const {
    const Data bytes = read(name);
    return {bytes.begin(), bytes.end()};
  }

  fs::path folder_;
};

// Random values of every kind that a property list holds.
class Generator {
 public:
  explicit Generator(unsigned seed) : engine_(seed) {}

  Value value(int depth) {
    switch (below(depth > 0 ? 13 : 8)) {
      case 0:
        return below(2) == 0;
      case 1:
        return static_cast<std::int64_t>(anyInteger());
      case 2:
        return anyInteger();
      case 3:
        return below(3) == 0 ? 0.1 : static_cast<double>(static_cast<std::int64_t>(engine_())) / 7;
      case 4:
        return text();
      case 5: {
        Data data(below(40));
        for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(engine_());
        return data;
      }
      case 6:
        return Date{
            static_cast<double>(static_cast<std::int64_t>(below(200000000000)) - 60000000000)};
      case 7:
        return plainUids_ ? Value(Uid{anyInteger()}) : Value(true);
      case 8:
      case 9:
      case 10: {
        Value::Array array;
        for (std::uint64_t i = below(8); i > 0; --i) array.push_back(value(depth - 1));
        return array;
      }
      default: {
        Value::Dictionary dictionary;
        for (std::uint64_t i = below(8); i > 0; --i) {
          dictionary.insert_or_assign(text(), value(depth - 1));
        }
        return dictionary;
      }
    }
  }

  void withoutUids() { plainUids_ = false; }

 private:
  std::uint64_t below(std::uint64_t end) { return engine_() % end; }
  std::uint64_t anyInteger() { return engine_() >> below(64); }
  std::string text() {
    static const char* const kTexts[] = {"",
                                         "a",
                                         "t\xC3\xAFtle",
                                         "<&>\"' \t\n",
                                         "\xE4\xB8\xAD\xE6\x96\x87",
                                         "\xF0\x9F\x98\x80",
                                         "fifteen letters"};
    std::string out = kTexts[below(std::size(kTexts))];
    for (std::uint64_t i = below(3); i > 0; --i) out += kTexts[below(std::size(kTexts))];
    return out;
  }

  std::mt19937_64 engine_;
  bool plainUids_ = true;
};

TEST_F(ForeignReaderTest, PythonReadsTheBinaryListsThatWeWrite) {
  constexpr int kCount = 300;
  std::vector<std::string> command{kPython, script(), "describe"};
  std::vector<std::string> expected;
  Generator generator(1);
  for (int i = 0; i < kCount; ++i) {
    const Value value = generator.value(4);
    write(std::to_string(i), binaryDataWithPropertyList(value));
    command.push_back(path(std::to_string(i)));
    expected.push_back(describe(value));
  }
  const auto result = runProgram(command);
  ASSERT_EQ(result.status, 0);
  std::istringstream lines(result.output);
  for (int i = 0; i < kCount; ++i) {
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, expected[static_cast<std::size_t>(i)]) << i;
  }
}

TEST_F(ForeignReaderTest, PythonReadsTheXMLListsThatWeWrite) {
  constexpr int kCount = 300;
  std::vector<std::string> command{kPython, script(), "describe"};
  std::vector<std::string> expected;
  Generator generator(2);
  generator.withoutUids();
  for (int i = 0; i < kCount; ++i) {
    const Value value = generator.value(4);
    write(std::to_string(i), XMLDataWithPropertyList(value));
    command.push_back(path(std::to_string(i)));
    expected.push_back(describe(value));
  }
  const auto result = runProgram(command);
  ASSERT_EQ(result.status, 0);
  std::istringstream lines(result.output);
  for (int i = 0; i < kCount; ++i) {
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, expected[static_cast<std::size_t>(i)]) << i;
  }
}

TEST_F(ForeignReaderTest, WeReadTheListsThatPythonWrites) {
  constexpr int kCount = 300;
  const auto result =
      runProgram({kPython, script(), "generate", folder_.string(), std::to_string(kCount), "3"});
  ASSERT_EQ(result.status, 0);
  for (int i = 0; i < kCount; ++i) {
    const std::string name = std::to_string(i);
    const std::string expected = readText(name + ".txt");
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(describe(propertyListWithData(read(name + ".binary"))), expected) << i;
    if (i % 2 != 0) {
      EXPECT_EQ(describe(propertyListWithData(read(name + ".xml"))), expected) << i;
    }
  }
}

TEST_F(ForeignReaderTest, WhatPythonWroteIsWrittenAgainEqually) {
  const auto result = runProgram({kPython, script(), "generate", folder_.string(), "100", "4"});
  ASSERT_EQ(result.status, 0);
  for (int i = 0; i < 100; ++i) {
    const Value value = propertyListWithData(read(std::to_string(i) + ".binary"));
    EXPECT_EQ(propertyListWithData(binaryDataWithPropertyList(value)), value) << i;
    EXPECT_EQ(propertyListWithData(XMLDataWithPropertyList(value)), value) << i;
  }
}

TEST_F(ForeignReaderTest, ArchivesOfAForeignShapeAreRead) {
  ASSERT_EQ(runProgram({kPython, script(), "archives", folder_.string()}).status, 0);
  int count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder_)) {
    const std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    ++count;
    const Value list = testing::unarchived(read(name));
    const auto* array = list.getIf<Value::Array>();
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(array->size(), 3U);
    const auto first = objectOf<Sample>((*array)[0]);
    const auto second = objectOf<testing::DerivedSample>((*array)[1]);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ((*array)[2], (*array)[0]);
    EXPECT_TRUE(first->enabled);
    EXPECT_EQ(first->count, -7);
    EXPECT_EQ(first->ratio, 2.5);
    EXPECT_EQ(first->title, "t\xC3\xAFtle \xF0\x9F\x98\x80");
    EXPECT_EQ(first->types, (std::vector<std::string>{"public.image"}));
    EXPECT_EQ(first->url, Url("file:///tmp/a%20folder/"));
    EXPECT_EQ(*first->bytes, (Data{0, 1, 2}));
    EXPECT_EQ(first->friendSample, nullptr);
    ASSERT_NE(first->any.find("when"), nullptr);
    EXPECT_EQ(*first->any.find("when"), Value(Date{12.5}));
    ASSERT_NE(first->any.find("id"), nullptr);
    EXPECT_EQ(first->any.find("id")->getIf<Uuid>()->UUIDString(),
              "00010203-0405-0607-0809-0A0B0C0D0E0F");
    EXPECT_EQ(second->title, "boxed");
    EXPECT_EQ(second->friendSample, first);
  }
  EXPECT_EQ(count, 11);
}

TEST_F(ForeignReaderTest, PythonReadsTheArchivesThatWeWrite) {
  auto sample = std::make_shared<Sample>();
  sample->title = "t\xC3\xAFtle";
  sample->any = Value::Array{Date{1.5}, Uuid{}, Url("file:///a"), UINT64_MAX};
  const Data bytes = testing::archived(Value::Array{sample, "$null"});
  write("archive", bytes);
  const auto result = runProgram({kPython, script(), "describe", path("archive")});
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.output, describe(propertyListWithData(bytes)) + "\n");
}

// The values whose text form the converter keeps: it shortens reals and counts dates in seconds.
TEST_F(ForeignReaderTest, TheConverterReadsTheBinaryListsThatWeWrite) {
  Data block(500, 7);
  const Value value(
      Value::Dictionary{{"array", Value::Array{1, "two", Value::Array{}, Value::Dictionary{}}},
                        {"big", INT64_MAX},
                        {"bool", Value::Array{true, false}},
                        {"data", block},
                        {"date", Date{600000000}},
                        {"emoji \xF0\x9F\x98\x80", "t\xC3\xAFtle \xE4\xB8\xAD"},
                        {"markup", "<&>"},
                        {"real", 2.5},
                        {"uid", Value::Array{Uid{0}, Uid{7}, Uid{300}, Uid{70000}}}});
  write("list", binaryDataWithPropertyList(value));
  ASSERT_EQ(
      runProgram({kConverter, "-i", path("list"), "-f", "xml", "-o", path("list.xml")}).status, 0);
  EXPECT_EQ(describe(XMLPropertyListWithData(read("list.xml"))), describe(value));
}

// Without UIDs, whose dictionaries this converter leaves as they are.
TEST_F(ForeignReaderTest, TheConverterReadsTheXMLListsThatWeWrite) {
  const Value value(Value::Dictionary{{"array", Value::Array{1, "two", Data(100, 7)}},
                                      {"markup", "<&>\"' \xF0\x9F\x98\x80"},
                                      {"date", Date{600000000}},
                                      {"real", 2.5}});
  write("list.xml", XMLDataWithPropertyList(value));
  ASSERT_EQ(
      runProgram({kConverter, "-i", path("list.xml"), "-f", "bin", "-o", path("list")}).status, 0);
  EXPECT_EQ(describe(binaryPropertyListWithData(read("list"))), describe(value));
}

TEST_F(ForeignReaderTest, TheConverterReadsTheArchivesThatWeWrite) {
  Value::Array list;
  for (int i = 0; i < 100; ++i) {
    auto sample = std::make_shared<Sample>();
    sample->title = "t\xC3\xAFtle " + std::to_string(i);
    sample->types = std::vector<std::string>{"public.image"};
    sample->bytes = std::make_shared<const Data>(Data(100, static_cast<std::uint8_t>(i)));
    list.push_back(sample);
  }
  const Data bytes = testing::archived(list);
  write("archive", bytes);
  ASSERT_EQ(runProgram({kConverter, "-i", path("archive"), "-f", "xml", "-o", path("xml")}).status,
            0);
  EXPECT_EQ(describe(XMLPropertyListWithData(read("xml"))), describe(propertyListWithData(bytes)));
  const Value again = testing::unarchived(read("xml"));
  EXPECT_EQ(again.getIf<Value::Array>()->size(), 100U);
}

}  // namespace
}  // namespace tervano
