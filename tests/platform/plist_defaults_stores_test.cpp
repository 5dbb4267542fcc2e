#include "platform/linux/plist_defaults_stores.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "platform/log.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_platform.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::forkChild;
using test::ParentLink;
using test::ScopedPlatform;

constexpr char kSuite[] = "com.vessok.tervano.preferences";

class StoresLog : public Log {
 public:
  void write(std::string_view line) override { lines.emplace_back(line); }
  std::vector<std::string> lines;
};

class PlistDefaultsStoresTest : public testing::Test {
 protected:
  void SetUp() override { platform.services().log = &log; }

  std::shared_ptr<DefaultsStore> open(const std::string& suite = kSuite) {
    return stores.initWithSuiteName(suite);
  }
  // As another process sees it.
  static Value read(const std::string& suite, const std::string& key) {
    return PlistDefaultsStores("other").initWithSuiteName(suite)->objectForKey(key);
  }
  static Value::Dictionary contents(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    const Value value = binaryPropertyListWithData(
        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    return *value.getIf<Value::Dictionary>();
  }
  void writeFile(const std::string& text) const {
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << text;
  }

  StoresLog log;
  ScopedPlatform platform;
  PlistDefaultsStores& stores = platform.defaultsStores();
  const std::string file = platform.home().configHome() + "/tervano/" + kSuite + ".plist";
};

TEST_F(PlistDefaultsStoresTest, AValueIsReadBackByItsStoreAtOnceAndByOthersAfterSynchronize) {
  const auto store = open();
  store->setBool(true, "flag");
  EXPECT_TRUE(store->boolForKey("flag"));
  EXPECT_TRUE(read(kSuite, "flag").isNull());
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(read(kSuite, "flag"), Value(true));
}

TEST_F(PlistDefaultsStoresTest, TheFileIsABinaryPropertyListForItsOwnerOnly) {
  const auto store = open();
  store->setInteger(-1, "number");
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"number", -1}}));
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(PlistDefaultsStoresTest, AFreshStoreMakesNoFileAndHoldsNothing) {
  const auto store = open();
  EXPECT_TRUE(store->objectForKey("x").isNull());
  EXPECT_FALSE(store->boolForKey("x"));
  EXPECT_EQ(store->integerForKey("x"), 0);
  EXPECT_EQ(store->floatForKey("x"), 0.0f);
  EXPECT_EQ(store->doubleForKey("x"), 0.0);
  EXPECT_TRUE(store->synchronize());
  EXPECT_FALSE(fs::exists(platform.home().configHome() + "/tervano"));
}

TEST_F(PlistDefaultsStoresTest, RegisteredDefaultsAreReadUntilAValueIsSetAndAreNeverWritten) {
  const auto store = open();
  store->registerDefaults({{"flag", true}, {"other", 5}});
  EXPECT_TRUE(store->boolForKey("flag"));
  store->setBool(false, "flag");
  EXPECT_FALSE(store->boolForKey("flag"));
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"flag", false}}));
  store->removeObjectForKey("flag");
  EXPECT_TRUE(store->boolForKey("flag"));
  EXPECT_TRUE(store->synchronize());
  EXPECT_TRUE(store->boolForKey("flag"));
  EXPECT_TRUE(contents(file).empty());
}

TEST_F(PlistDefaultsStoresTest, RegisteringMoreDefaultsKeepsThoseAlreadyThere) {
  const auto store = open();
  store->registerDefaults({{"a", 1}, {"b", 1}});
  store->registerDefaults({{"b", 2}});
  EXPECT_EQ(store->integerForKey("a"), 1);
  EXPECT_EQ(store->integerForKey("b"), 2);
}

TEST_F(PlistDefaultsStoresTest, EachStoreObjectHasItsOwnRegisteredDefaults) {
  const auto first = open();
  const auto second = open();
  first->registerDefaults({{"a", 1}});
  EXPECT_EQ(second->integerForKey("a"), 0);
}

TEST_F(PlistDefaultsStoresTest, NumbersOfEveryKindComeBackAsTheyWere) {
  const auto store = open();
  store->setFloat(0.1f, "float");
  store->setDouble(1.0 / 3, "double");
  store->setInteger(INT64_MIN, "least");
  store->setObject(Value(std::int64_t{4294967295}), "unsigned");
  EXPECT_TRUE(store->synchronize());
  const auto other = PlistDefaultsStores("other").initWithSuiteName(kSuite);
  EXPECT_EQ(other->floatForKey("float"), 0.1f);
  EXPECT_EQ(other->doubleForKey("double"), 1.0 / 3);
  EXPECT_EQ(other->integerForKey("least"), INT64_MIN);
  EXPECT_EQ(longLongValue(other->objectForKey("unsigned")), 4294967295);
}

TEST_F(PlistDefaultsStoresTest, BooleansAreReadFromNumbersAndTexts) {
  const auto store = open();
  for (const Value& value : {Value(true), Value(1), Value(-3), Value(0.5), Value("YES"),
                             Value("true"), Value("1"), Value("y")}) {
    store->setObject(value, "x");
    EXPECT_TRUE(store->boolForKey("x"));
  }
  for (const Value& value : {Value(false), Value(0), Value(0.0), Value("NO"), Value("false"),
                             Value("0"), Value(""), Value("other"), Value(Value::Array{true})}) {
    store->setObject(value, "x");
    EXPECT_FALSE(store->boolForKey("x"));
  }
}

TEST_F(PlistDefaultsStoresTest, NumbersAreReadFromTextsAndBooleans) {
  const auto store = open();
  store->setObject("42", "text");
  store->setObject(true, "flag");
  store->setObject(1.9, "real");
  EXPECT_EQ(store->integerForKey("text"), 42);
  EXPECT_EQ(store->integerForKey("flag"), 1);
  EXPECT_EQ(store->integerForKey("real"), 1);
  EXPECT_EQ(store->doubleForKey("text"), 42.0);
}

TEST_F(PlistDefaultsStoresTest, ContainersDataAndDatesComeBackAsTheyWere) {
  const Value value(Value::Dictionary{
      {"list", Value::Array{1, "two", 3.5, false}}, {"data", Data{0, 255}}, {"date", Date{12.5}}});
  const auto store = open();
  store->setObject(value, "x");
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(read(kSuite, "x"), value);
}

TEST_F(PlistDefaultsStoresTest, SettingNilRemoves) {
  const auto store = open();
  store->setInteger(1, "x");
  EXPECT_TRUE(store->synchronize());
  store->setObject(Value(), "x");
  EXPECT_TRUE(store->objectForKey("x").isNull());
  EXPECT_TRUE(store->synchronize());
  EXPECT_TRUE(read(kSuite, "x").isNull());
}

TEST_F(PlistDefaultsStoresTest, AValueThatNoPropertyListHoldsThrowsAndSpoilsNothing) {
  const auto store = open();
  store->setInteger(1, "good");
  EXPECT_THROW(store->setObject(Value(Url("file:///x")), "bad"), PlatformException);
  EXPECT_THROW(store->setObject(Value(Value::Array{Value()}), "bad"), PlatformException);
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"good", 1}}));
}

TEST_F(PlistDefaultsStoresTest, TheStandardStoreIsOneObjectOnTheApplicationsOwnDomain) {
  const auto store = stores.standardUserDefaults();
  EXPECT_EQ(store, stores.standardUserDefaults());
  store->setInteger(1, "x");
  EXPECT_TRUE(store->synchronize());
  EXPECT_TRUE(fs::exists(platform.home().configHome() + "/tervano/com.vessok.tervano.plist"));
}

TEST_F(PlistDefaultsStoresTest, ASuiteNameCannotLeaveTheFolder) {
  for (const std::string& suite :
       {std::string("../../escape"), std::string("/tmp/escape"), std::string(".."),
        std::string(".hidden"), std::string("a\0b", 3), std::string(5000, 's'), std::string()}) {
    const auto store = open(suite);
    store->setObject(suite.substr(0, 1), "first");
    EXPECT_TRUE(store->synchronize());
    EXPECT_FALSE(read(suite, "first").isNull());
    EXPECT_TRUE(PlistDefaultsStores::pathForSuiteName(suite).starts_with(
        platform.home().configHome() + "/tervano/"));
  }
  EXPECT_FALSE(fs::exists(platform.home().path() + "/escape.plist"));
  EXPECT_FALSE(fs::exists("/tmp/escape.plist"));
  for (const auto& entry :
       fs::recursive_directory_iterator(platform.home().configHome() + "/tervano")) {
    EXPECT_TRUE(entry.is_regular_file());
  }
}

TEST_F(PlistDefaultsStoresTest, ReadersSeeEveryChangeAlsoSeveralWithinOneClockTick) {
  const auto writer = open();
  PlistDefaultsStores others("other");
  const auto reader = others.initWithSuiteName(kSuite);
  for (int round = 0; round < 2000; ++round) {
    // The same size, and soon the same inode number again.
    writer->setBool(round % 2 == 0, "x");
    ASSERT_TRUE(writer->synchronize());
    ASSERT_EQ(reader->boolForKey("x"), round % 2 == 0) << round;
  }
}

TEST_F(PlistDefaultsStoresTest, TwoStoresDoNotLoseEachOthersKeys) {
  const auto first = open();
  PlistDefaultsStores others("other");
  const auto second = others.initWithSuiteName(kSuite);
  first->setInteger(1, "a");
  second->setInteger(2, "b");
  EXPECT_TRUE(first->synchronize());
  EXPECT_TRUE(second->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_EQ(first->integerForKey("b"), 2);
}

TEST_F(PlistDefaultsStoresTest, OnlyChangedKeysAreWrittenOverTheNewerOnesOfOthers) {
  const auto first = open();
  first->setInteger(1, "a");
  first->setInteger(1, "b");
  EXPECT_TRUE(first->synchronize());
  PlistDefaultsStores others("other");
  const auto second = others.initWithSuiteName(kSuite);
  second->setInteger(2, "a");
  EXPECT_TRUE(second->synchronize());
  first->setInteger(3, "b");
  EXPECT_TRUE(first->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"a", 2}, {"b", 3}}));
}

TEST_F(PlistDefaultsStoresTest, TwoProcessesSettingDifferentKeysTenThousandTimesLoseNone) {
  constexpr int kRounds = 5000;
  const auto write = [](const std::string& prefix) {
    return [prefix](ParentLink&) {
      PlistDefaultsStores own("other");
      const auto store = own.initWithSuiteName(kSuite);
      for (int round = 0; round < kRounds; ++round) {
        // Keys of a hundred names, each holding the round that set it last.
        store->setInteger(round, prefix + std::to_string(round % 100));
        if (!store->synchronize()) return 1;
      }
      return 0;
    };
  };
  ChildProcess first = forkChild(write("a"));
  ChildProcess second = forkChild(write("b"));
  EXPECT_EQ(first.waitForExit(100), 0);
  EXPECT_EQ(second.waitForExit(100), 0);
  const auto values = contents(file);
  EXPECT_EQ(values.size(), 200u);
  for (const std::string prefix : {"a", "b"}) {
    for (int key = 0; key < 100; ++key) {
      EXPECT_EQ(values.at(prefix + std::to_string(key)), Value(kRounds - 100 + key));
    }
  }
}

TEST_F(PlistDefaultsStoresTest, AWriterThatIsKilledAtAnyMomentLeavesAWholeFile) {
  for (int round = 0; round < 10; ++round) {
    ChildProcess writer = forkChild([](ParentLink& parent) {
      PlistDefaultsStores own("other");
      const auto store = own.initWithSuiteName(kSuite);
      for (int number = 0;; ++number) {
        store->setObject(std::string(1000, 'x'), "key" + std::to_string(number % 50));
        store->synchronize();
        if (number == 60) parent.say("writing");
      }
      return 0;
    });
    ASSERT_EQ(writer.hear(), "writing");
    writer.kill(SIGKILL);
    EXPECT_EQ(writer.waitForExit(), -SIGKILL);
    EXPECT_EQ(contents(file).size(), 50u);
    const auto store = open();
    store->setInteger(round, "ours");
    EXPECT_TRUE(store->synchronize());
    store->removeObjectForKey("ours");
    EXPECT_TRUE(store->synchronize());
  }
}

TEST_F(PlistDefaultsStoresTest, ADamagedFileReadsAsDefaultsAndIsLoggedOnce) {
  writeFile("bplist00 damaged");
  const auto store = open();
  store->registerDefaults({{"x", 7}});
  for (int round = 0; round < 5; ++round) EXPECT_EQ(store->integerForKey("x"), 7);
  EXPECT_THAT(log.lines, testing::ElementsAre(testing::HasSubstr(file)));
}

TEST_F(PlistDefaultsStoresTest, ADamagedFileIsSetAsideByTheNextWriteRatherThanLost) {
  const auto store = open();
  for (const std::string text : {"first damage", "second damage"}) {
    writeFile(text);
    store->setInteger(1, "x");
    EXPECT_TRUE(store->synchronize());
    EXPECT_EQ(contents(file), (Value::Dictionary{{"x", 1}}));
  }
  std::ifstream first(file + ".broken");
  std::ifstream second(file + ".broken-2");
  EXPECT_EQ((std::string{std::istreambuf_iterator<char>(first), {}}), "first damage");
  EXPECT_EQ((std::string{std::istreambuf_iterator<char>(second), {}}), "second damage");
}

TEST_F(PlistDefaultsStoresTest, AFileWhoseRootIsNoDictionaryIsDamaged) {
  const Data bytes = binaryDataWithPropertyList(Value(Value::Array{1}));
  writeFile(std::string(bytes.begin(), bytes.end()));
  EXPECT_TRUE(open()->objectForKey("x").isNull());
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST_F(PlistDefaultsStoresTest, AnXmlFileIsReadToo) {
  const Data bytes = XMLDataWithPropertyList(Value(Value::Dictionary{{"x", 3}}));
  writeFile(std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(open()->integerForKey("x"), 3);
}

TEST_F(PlistDefaultsStoresTest, ANamedPipeInPlaceOfTheFileDoesNotHangAReader) {
  fs::create_directories(fs::path(file).parent_path());
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  EXPECT_TRUE(open()->objectForKey("x").isNull());
}

TEST_F(PlistDefaultsStoresTest, AFileThatIsDeletedIsEmptyAndComesBackWithTheNextWrite) {
  const auto store = open();
  store->setInteger(1, "x");
  EXPECT_TRUE(store->synchronize());
  fs::remove_all(fs::path(file).parent_path());
  EXPECT_EQ(store->integerForKey("x"), 0);
  store->setInteger(2, "y");
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"y", 2}}));
}

TEST_F(PlistDefaultsStoresTest, AWriteThatFailsSaysSoKeepsTheOldFileAndIsMadeUpForLater) {
  const auto store = open();
  store->setInteger(1, "x");
  EXPECT_TRUE(store->synchronize());
  ChildProcess child = forkChild([&](ParentLink&) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 1000;
    setrlimit(RLIMIT_FSIZE, &limit);
    store->setObject(std::string(5000, 'x'), "big");
    if (store->synchronize()) return 1;
    if (contents(file) != Value::Dictionary{{"x", 1}}) return 2;
    if (boolValue(store->objectForKey("big")) || store->objectForKey("big").isNull()) return 3;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
    if (!store->synchronize()) return 4;
    return contents(file).size() == 2 ? 0 : 5;
  });
  EXPECT_EQ(child.waitForExit(), 0);
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(fs::path(file).parent_path())) {
    ++files;
  }
  EXPECT_EQ(files, 2u) << "the list and its lock";
}

TEST_F(PlistDefaultsStoresTest, AFolderThatMayNotBeWrittenToMakesSynchronizeFail) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  ASSERT_EQ(chmod(platform.home().path().c_str(), 0755), 0);
  ChildProcess child = forkChild([this](ParentLink&) {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 98;
    const auto store = open();
    store->setInteger(1, "x");
    return !store->synchronize() && store->integerForKey("x") == 1 && log.lines.size() == 1 ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(PlistDefaultsStoresTest, ManyThreadsMaySetAndReadAtOnce) {
  const auto store = open();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      const auto own = open();
      for (int round = 0; round < 100; ++round) {
        store->setInteger(round, "shared" + std::to_string(thread));
        own->setInteger(round, "own" + std::to_string(thread));
        own->synchronize();
        store->synchronize();
        own->integerForKey("shared0");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto values = contents(file);
  EXPECT_EQ(values.size(), 8u);
  for (const auto& [key, value] : values) EXPECT_EQ(value, Value(99)) << key;
}

TEST_F(PlistDefaultsStoresTest, ARelativeConfigHomeIsIgnored) {
  platform.home().setVariable("XDG_CONFIG_HOME", "relative");
  EXPECT_EQ(PlistDefaultsStores::pathForSuiteName("s"),
            platform.home().path() + "/.config/tervano/s.plist");
}

TEST_F(PlistDefaultsStoresTest, AFileThatCannotBeReadForAWhileIsNeitherForgottenNorSetAside) {
  const auto store = open();
  store->setBool(true, "kept");
  ASSERT_TRUE(store->synchronize());
  const std::string away = file + ".away";
  fs::rename(file, away);
  fs::create_symlink(file, file);

  EXPECT_TRUE(store->boolForKey("kept"));
  store->setBool(true, "added");
  EXPECT_FALSE(store->synchronize());
  EXPECT_TRUE(fs::is_symlink(file));

  fs::remove(file);
  fs::rename(away, file);
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(contents(file), (Value::Dictionary{{"added", true}, {"kept", true}}));
  EXPECT_FALSE(fs::exists(file + ".broken"));
}

TEST_F(PlistDefaultsStoresTest, AKeyThatIsNoTextIsRefusedAndSpoilsNothing) {
  const auto store = open();
  EXPECT_THROW(store->setBool(true, "\xFF"), PlatformException);
  store->setBool(true, "good");
  EXPECT_TRUE(store->synchronize());
  EXPECT_EQ(read(kSuite, "good"), Value(true));
}

}  // namespace
}  // namespace tervano
