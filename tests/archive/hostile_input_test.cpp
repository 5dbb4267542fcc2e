// Small files that ask for much: each one is read in a process of its own, whose memory is measured
// and whose processor time is limited.

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "archive/inspection.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/child_process.h"
#include "tests/archive/raw_property_list.h"
#include "tests/archive/sample_classes.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TERVANO_SANITIZED 1
#else
#define TERVANO_SANITIZED 0
#endif

namespace tervano {
namespace {

using testing::classNamed;
using testing::dataOf;
using testing::hex;
using testing::keyedArchive;
using testing::RawPropertyList;
using testing::runInChild;
using testing::unarchived;

constexpr int kRead = 0;
constexpr int kRefused = 7;
// Two seconds of the processor are allowed; a busy or instrumented machine gets room.
constexpr unsigned kCpuSeconds = TERVANO_SANITIZED ? 40 : 10;

int outcomeOf(const std::function<void()>& body) {
  try {
    body();
    return kRead;
  } catch (const PlatformException&) {
    return kRefused;
  }
}

class HostileInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "tervano-hostile-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  testing::ChildResult read(const Data& bytes, const char* way) const {
    const std::string path = (folder_ / "file").string();
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.close();
    EXPECT_TRUE(file.good());
    return testing::runProgram(
        {TERVANO_ARCHIVE_READ_PROBE, way, path, std::to_string(kCpuSeconds)});
  }

  // Expects reading `bytes` to end with `outcome`, within 20 times their size and 64 MiB.
  void expectBounded(const Data& bytes, const char* way, int outcome) const {
    const long idle = std::stol(read(Data{0}, way).output);
    const testing::ChildResult result = read(bytes, way);
    ASSERT_EQ(result.status, outcome);
    const long peak = std::stol(result.output) - idle;
    const long allowed = 64L * 1024 + static_cast<long>(20 * bytes.size() / 1024);
    // Sanitizers keep freed memory and add their own to every block.
    EXPECT_LT(peak, TERVANO_SANITIZED ? 8 * allowed : allowed);
  }

  std::filesystem::path folder_;
};

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

// The ways of reading that the probe knows.
constexpr char kAsList[] = "list";
constexpr char kAsArchive[] = "archive";
constexpr char kInspected[] = "inspect";

std::string reference(std::uint64_t index) {
  return RawPropertyList::bigEndian(index, 4);
}

RawPropertyList wideList() {
  RawPropertyList list;
  list.offsetWidth = 4;
  list.referenceWidth = 4;
  return list;
}

// An array marker with a count of four bytes.
std::string arrayOf(std::uint64_t count) {
  return hex("AF 12") + RawPropertyList::bigEndian(count, 4);
}

TEST_F(HostileInputTest, ArraysNested100000DeepAreRefused) {
  RawPropertyList list = wideList();
  for (std::uint64_t i = 0; i < 100000; ++i) list.objects.push_back(hex("A1") + reference(i + 1));
  list.objects.push_back(hex("09"));
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, DictionariesNested100000DeepAreRefused) {
  RawPropertyList list = wideList();
  for (std::uint64_t i = 0; i < 100000; ++i) {
    list.objects.push_back(hex("D1") + reference(100000) + reference(i + 1));
  }
  list.objects.push_back(hex("51 61"));
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, ArraysThatShareOneAnotherExponentiallyAreRefused) {
  RawPropertyList list;
  list.offsetWidth = 4;
  for (unsigned i = 1; i < 100; ++i) {
    const auto next = static_cast<char>(i);
    list.objects.push_back(hex("A2") + next + next);
  }
  list.objects.push_back(hex("09"));
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, EmptyArraysSharedWidelyAreRefused) {
  RawPropertyList list;
  list.offsetWidth = 4;
  const auto many = [](char next) { return arrayOf(5000) + std::string(5000, next); };
  list.objects = {many(1), many(2), many(3), hex("A0")};
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, ALongStringSharedManyTimesIsRefused) {
  RawPropertyList list;
  list.offsetWidth = 4;
  list.objects = {arrayOf(100000) + std::string(100000, 1),
                  hex("5F 12 00010000") + std::string(65536, 'a')};
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, LongDataSharedManyTimesIsOneBlock) {
  RawPropertyList list;
  list.offsetWidth = 4;
  list.objects = {arrayOf(100000) + std::string(100000, 1),
                  hex("4F 12 00100000") + std::string(kMegabyte, 'a')};
  expectBounded(list.bytes(), kAsList, kRead);
}

TEST_F(HostileInputTest, TenMillionReferencesToOneBooleanAreRefused) {
  RawPropertyList list;
  list.offsetWidth = 4;
  std::string array = arrayOf(10000000);
  array.resize(array.size() + 10000000, 1);
  list.objects = {array, hex("09")};
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, CountsOfBillionsAreRefused) {
  for (const char* marker : {"4F", "5F", "6F", "AF", "CF", "DF"}) {
    for (const char* count :
         {"12 FFFFFFFF", "12 7FFFFFFF", "13 00000000FFFFFFFF", "13 7FFFFFFFFFFFFFFF",
          "13 FFFFFFFFFFFFFFFF", "13 4000000000000000"}) {
      RawPropertyList list;
      list.objects = {hex(marker) + hex(count)};
      expectBounded(list.bytes(), kAsList, kRefused);
    }
  }
}

TEST_F(HostileInputTest, AnObjectCountOfBillionsIsRefused) {
  for (const std::uint64_t count :
       {std::uint64_t{1} << 31, std::uint64_t{1} << 33, std::uint64_t{1} << 61, UINT64_MAX}) {
    RawPropertyList list;
    list.objects = {hex("09")};
    list.objectCount = count;
    expectBounded(list.bytes(), kAsList, kRefused);
  }
}

TEST_F(HostileInputTest, AMillionOffsetsToOneObjectAreRefused) {
  RawPropertyList list = wideList();
  list.objects.assign(1000000, hex("09"));
  for (std::size_t i = 0; i < list.objects.size(); ++i) list.offsets[i] = 8;
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, AMillionObjectsInReverseOrderAreRead) {
  RawPropertyList list = wideList();
  list.objects.assign(1000000, hex("09"));
  for (std::size_t i = 0; i < list.objects.size(); ++i) {
    list.offsets[i] = 8 + list.objects.size() - 1 - i;
  }
  expectBounded(list.bytes(), kAsList, kRead);
}

TEST_F(HostileInputTest, CyclesAreRefused) {
  RawPropertyList list;
  list.objects = {hex("A2 01 01"), hex("A2 00 00")};
  expectBounded(list.bytes(), kAsList, kRefused);
  list.objects = {hex("D1 01 00"), hex("51 61")};
  expectBounded(list.bytes(), kAsList, kRefused);
}

TEST_F(HostileInputTest, ADictionaryOf300000DistinctKeysIsBounded) {
  constexpr std::uint64_t kKeys = 300000;
  RawPropertyList list = wideList();
  std::string dictionary = hex("DF 12") + RawPropertyList::bigEndian(kKeys, 4);
  for (std::uint64_t i = 0; i < kKeys; ++i) dictionary += reference(i + 1);
  for (std::uint64_t i = 0; i < kKeys; ++i) dictionary += reference(1);
  list.objects.push_back(dictionary);
  for (std::uint64_t i = 0; i < kKeys; ++i) {
    std::string key = hex("53");
    key += static_cast<char>(i & 0x7F);
    key += static_cast<char>((i >> 7) & 0x7F);
    key += static_cast<char>(i >> 14);
    list.objects.push_back(key);
  }
  expectBounded(list.bytes(), kAsList, kRead);
}

TEST_F(HostileInputTest, XMLNested100000DeepIsRefused) {
  std::string text = "<plist>";
  for (int i = 0; i < 100000; ++i) text += "<array>";
  expectBounded(dataOf(text), kAsList, kRefused);
  text = "<plist>";
  for (int i = 0; i < 100000; ++i) text += "<dict><key>a</key>";
  expectBounded(dataOf(text), kAsList, kRefused);
}

TEST_F(HostileInputTest, EntitiesThatExpandExponentiallyAreRefused) {
  std::string text = "<!DOCTYPE plist [<!ENTITY a0 \"ha\">";
  for (int i = 1; i < 60; ++i) {
    const std::string before = "&a" + std::to_string(i - 1) + ";";
    text.append("<!ENTITY a").append(std::to_string(i)).append(" \"");
    text.append(before).append(before).append("\">");
  }
  text += "]><plist><string>&a59;</string></plist>";
  expectBounded(dataOf(text), kAsList, kRefused);
}

TEST_F(HostileInputTest, DefaultAttributesByTheThousandAreRefused) {
  std::string text = "<!DOCTYPE plist [<!ATTLIST array";
  for (int i = 0; i < 50000; ++i) text += " a" + std::to_string(i) + " CDATA 'x'";
  text += ">]><plist><array>";
  for (int i = 0; i < 50000; ++i) text += "<array/>";
  text += "</array></plist>";
  expectBounded(dataOf(text), kAsList, kRefused);
}

TEST_F(HostileInputTest, AMillionEmptyXMLElementsAreBounded) {
  std::string text = "<plist><array>";
  for (int i = 0; i < 1000000; ++i) text += "<true/>";
  text += "</array></plist>";
  expectBounded(dataOf(text), kAsList, kRead);
}

TEST_F(HostileInputTest, HugeXMLTokensAreBounded) {
  const std::string much(8 << 20, 'a');
  expectBounded(dataOf("<plist><string>" + much + "</string></plist>"), kAsList, kRead);
  expectBounded(dataOf("<plist><data>" + much + "</data></plist>"), kAsList, kRead);
  expectBounded(dataOf("<plist><!--" + much + "--><true/></plist>"), kAsList, kRead);
  expectBounded(dataOf("<plist a=\"" + much + "\"><true/></plist>"), kAsList, kRead);
  expectBounded(dataOf("<" + much), kAsList, kRefused);
  expectBounded(dataOf("<plist><integer>" + much + "</integer></plist>"), kAsList, kRefused);
  expectBounded(dataOf("<plist><real>" + std::string(8 << 20, '1') + "</real></plist>"), kAsList,
                kRefused);
}

TEST_F(HostileInputTest, ThreeHundredThousandAttributesAreBounded) {
  std::string text = "<plist";
  for (int i = 0; i < 300000; ++i) text += " a" + std::to_string(i) + "='x'";
  text += "><true/></plist>";
  expectBounded(dataOf(text), kAsList, kRead);
}

// An archive whose root is entry 1, an NSArray of class entry 2.
Value arrayObject(const std::vector<std::uint64_t>& members) {
  Value::Array uids;
  uids.reserve(members.size());
  for (const std::uint64_t member : members) uids.push_back(Uid{member});
  return Value::Dictionary{{"$class", Uid{2}}, {"NS.objects", std::move(uids)}};
}

Data archiveOf(Value::Array objects) {
  return binaryDataWithPropertyList(keyedArchive(std::move(objects)));
}

TEST_F(HostileInputTest, ArchivedArraysNested100000DeepAreRefused) {
  Value::Array objects{"$null", arrayObject({3}), classNamed({"NSArray", "NSObject"})};
  for (std::uint64_t i = 3; i < 100000; ++i) objects.push_back(arrayObject({i + 1}));
  objects.push_back(arrayObject({}));
  const Data bytes = archiveOf(std::move(objects));
  expectBounded(bytes, kAsArchive, kRefused);
  expectBounded(bytes, kInspected, kRead);
}

TEST_F(HostileInputTest, ArchivedArraysThatShareOneAnotherAreRefused) {
  Value::Array objects{"$null", arrayObject({3, 3}), classNamed({"NSArray", "NSObject"})};
  for (std::uint64_t i = 3; i < 90; ++i) objects.push_back(arrayObject({i + 1, i + 1}));
  objects.push_back(arrayObject({}));
  const Data bytes = archiveOf(std::move(objects));
  expectBounded(bytes, kAsArchive, kRefused);
  expectBounded(bytes, kInspected, kRead);
}

TEST_F(HostileInputTest, ALongArchivedStringUsedByManyObjectsIsRefused) {
  Value::Array objects{"$null", nullptr, classNamed({"NSArray", "NSObject"}),
                       classNamed({"Sample", "NSObject"}), std::string(kMegabyte, 'a')};
  std::vector<std::uint64_t> members;
  for (std::uint64_t i = 5; i < 5000; ++i) {
    members.push_back(i);
    objects.push_back(Value::Dictionary{{"$class", Uid{3}}, {"title", Uid{4}}});
  }
  objects[1] = arrayObject(members);
  const Data bytes = archiveOf(std::move(objects));
  expectBounded(bytes, kAsArchive, kRefused);
  // Only the first ones are shown whole.
  expectBounded(bytes, kInspected, kRead);
}

TEST_F(HostileInputTest, ALongInlineBlockUsedByManyObjectsIsOneBlock) {
  Value::Array objects{"$null", nullptr, classNamed({"NSArray", "NSObject"}),
                       classNamed({"Sample", "NSObject"})};
  const Value block(Data(kMegabyte, 7));
  std::vector<std::uint64_t> members;
  for (std::uint64_t i = 4; i < 5000; ++i) {
    members.push_back(i);
    objects.push_back(Value::Dictionary{{"$class", Uid{3}}, {"bytes", block}});
  }
  objects[1] = arrayObject(members);
  expectBounded(archiveOf(std::move(objects)), kAsArchive, kRead);
}

// "$objects" as raw references: entry 1 is an array of all UIDs, and each of the other entries is
// one and the same dictionary.
Data archiveWhoseEntriesAreOneObject(std::size_t entries, const std::vector<std::string>& keys) {
  RawPropertyList list = wideList();
  const auto text = [](const std::string& value) {
    return hex("5F 12") + RawPropertyList::bigEndian(value.size(), 4) + value;
  };
  enum {
    Header,
    Version,
    Archiver,
    Top,
    Objects,
    VersionKey,
    ArchiverKey,
    TopKey,
    ObjectsKey,
    RootKey,
    Null,
    Root,
    List,
    ClassKey,
    MembersKey,
    Members,
    ArrayClass,
    SampleClass,
    NameKey,
    ChainKey,
    ArrayName,
    SampleName,
    ArrayChain,
    SampleChain,
    ArrayUid,
    SampleUid,
    RootUid,
    Shared,
    FirstMore
  };
  const auto dictionary = [](const std::vector<std::uint64_t>& refs) {
    std::string out = hex("DF 12") + RawPropertyList::bigEndian(refs.size() / 2, 4);
    for (std::size_t i = 0; i < refs.size(); i += 2) out += reference(refs[i]);
    for (std::size_t i = 1; i < refs.size(); i += 2) out += reference(refs[i]);
    return out;
  };
  const auto array = [](const std::vector<std::uint64_t>& refs) {
    std::string out = arrayOf(refs.size());
    for (const std::uint64_t ref : refs) out += reference(ref);
    return out;
  };
  list.objects.resize(FirstMore);
  auto& objects = list.objects;
  objects[Header] =
      dictionary({VersionKey, Version, ArchiverKey, Archiver, TopKey, Top, ObjectsKey, Objects});
  objects[Version] = hex("12 000186A0");
  objects[Archiver] = text("NSKeyedArchiver");
  objects[Top] = dictionary({RootKey, RootUid});
  objects[VersionKey] = text("$version");
  objects[ArchiverKey] = text("$archiver");
  objects[TopKey] = text("$top");
  objects[ObjectsKey] = text("$objects");
  objects[RootKey] = text("root");
  objects[Null] = text("$null");
  objects[Root] = dictionary({ClassKey, ArrayUid, MembersKey, Members});
  objects[List] = hex("08");
  objects[ClassKey] = text("$class");
  objects[MembersKey] = text("NS.objects");
  objects[ArrayClass] = dictionary({NameKey, ArrayName, ChainKey, ArrayChain});
  objects[SampleClass] = dictionary({NameKey, SampleName, ChainKey, SampleChain});
  objects[NameKey] = text("$classname");
  objects[ChainKey] = text("$classes");
  objects[ArrayName] = text("NSArray");
  objects[SampleName] = text("Sample");
  objects[ArrayChain] = array({ArrayName});
  objects[SampleChain] = array({SampleName});
  objects[RootUid] = hex("80 01");
  objects[ArrayUid] = hex("80 02");
  objects[SampleUid] = hex("80 03");
  std::vector<std::uint64_t> shared;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    shared.push_back(FirstMore + i);
    shared.push_back(List);
    objects.push_back(text(keys[i]));
  }
  shared.push_back(ClassKey);
  shared.push_back(SampleUid);
  objects[Shared] = dictionary(shared);
  std::vector<std::uint64_t> all{Null, Root, ArrayClass, SampleClass};
  std::vector<std::uint64_t> members;
  for (std::size_t i = 0; i < entries; ++i) {
    members.push_back(objects.size());
    objects.push_back(hex("83") + reference(all.size()));
    all.push_back(Shared);
  }
  objects[Members] = array(members);
  objects[Objects] = array(all);
  return list.bytes();
}

TEST_F(HostileInputTest, EntriesThatAreOneSmallDictionaryAreObjectsOfTheirOwn) {
  const Data bytes = archiveWhoseEntriesAreOneObject(3, {"enabled"});
  const Value list = unarchived(bytes);
  const auto& array = *list.getIf<Value::Array>();
  ASSERT_EQ(array.size(), 3U);
  EXPECT_NE(testing::objectOf<testing::Sample>(array[0]), nullptr);
  EXPECT_FALSE(array[0] == array[1]);
}

TEST_F(HostileInputTest, EntriesThatAreOneHugeDictionaryAreRefused) {
  std::vector<std::string> keys;
  keys.reserve(50000);
  for (int i = 0; i < 50000; ++i) keys.push_back("k" + std::to_string(i));
  const Data bytes = archiveWhoseEntriesAreOneObject(50000, keys);
  expectBounded(bytes, kAsArchive, kRefused);
  // Only the first ones are shown whole.
  expectBounded(bytes, kInspected, kRead);
}

TEST_F(HostileInputTest, ManyObjectsWithNothingInThemAreRefused) {
  const Data bytes = archiveWhoseEntriesAreOneObject(300000, {});
  expectBounded(bytes, kAsArchive, kRefused);
}

TEST_F(HostileInputTest, ManyDescriptionsWithOneLongChainAreBounded) {
  std::vector<std::string> chain{"Sample"};
  for (int i = 0; i < 250; ++i) chain.push_back("C" + std::to_string(i));
  Value::Array objects{"$null", nullptr, classNamed({"NSArray", "NSObject"})};
  std::vector<std::uint64_t> members;
  for (std::uint64_t i = 0; i < 2000; ++i) {
    members.push_back(objects.size());
    objects.push_back(Value::Dictionary{{"$class", Uid{objects.size() + 1}}});
    objects.push_back(classNamed(chain));
  }
  objects[1] = arrayObject(members);
  expectBounded(archiveOf(std::move(objects)), kAsArchive, kRead);
}

TEST_F(HostileInputTest, ArchivedCyclesAreRefused) {
  expectBounded(archiveOf({"$null", arrayObject({1, 1}), classNamed({"NSArray", "NSObject"})}),
                kAsArchive, kRefused);
}

TEST_F(HostileInputTest, UrlsThatBuildOnOneAnotherAreBounded) {
  Value::Array objects{"$null",
                       nullptr,
                       classNamed({"NSArray", "NSObject"}),
                       classNamed({"NSURL", "NSObject"}),
                       Value::Dictionary{{"$class", Uid{3}}, {"NS.relative", Uid{5}}},
                       "file:///" + std::string(kMegabyte, 'a') + "/"};
  std::vector<std::uint64_t> members;
  for (std::uint64_t i = 0; i < 3000; ++i) {
    members.push_back(objects.size());
    objects.push_back(
        Value::Dictionary{{"$class", Uid{3}}, {"NS.base", Uid{4}}, {"NS.relative", "b"}});
  }
  objects[1] = arrayObject(members);
  const Data bytes = archiveOf(std::move(objects));
  expectBounded(bytes, kAsArchive, kRefused);
  // Only the first ones are shown whole.
  expectBounded(bytes, kInspected, kRead);
}

// Random damage to good files: whatever happens, it is an answer or a PlatformException.
TEST_F(HostileInputTest, DamagedFilesAreReadOrRefused) {
  auto sample = std::make_shared<testing::Sample>();
  sample->title = "t\xC3\xAFtle";
  sample->types = std::vector<std::string>{"public.image"};
  sample->url = Url("file:///a");
  sample->bytes = std::make_shared<const Data>(Data(100, 7));
  sample->any = Value::Dictionary{{"a", Date{1}}, {"b", Uuid{}}};
  const Data good = testing::archived(Value::Array{sample, sample, "text"});
  const auto result = runInChild(
      [&] {
        std::uint32_t state = 1;
        const auto random = [&] { return state = state * 1664525 + 1013904223, state >> 8; };
        for (int round = 0; round < 20000; ++round) {
          Data bytes = good;
          for (unsigned i = 0; i <= random() % 4; ++i) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
          }
          outcomeOf([&] { propertyListWithData(bytes); });
          outcomeOf([&] { unarchived(bytes); });
          outcomeOf([&] { plainValueOfKeyedArchive(bytes); });
        }
        return kRead;
      },
      TERVANO_SANITIZED ? 300 : 100);
  EXPECT_EQ(result.status, kRead);
}

}  // namespace
}  // namespace tervano
