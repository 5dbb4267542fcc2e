#include "prefs/vx_user_defaults.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

#include "archive/platform_exception.h"
#include "platform/platform.h"
#include "tests/support/scoped_platform.h"

namespace tervano {
namespace {

using test::ScopedPlatform;

constexpr char kTestSuite[] = "com.vessok.test.suite";

// One property of every type character.
class Everything : public VXUserDefaults {
 public:
  using VXUserDefaults::VXUserDefaults;
  static std::span<const Property> properties() {
    static constexpr Property kRows[] = {
        {"object", '@'},
        {"flag", 'B'},
        {"character", 'c'},
        {"number", 'i'},
        {"unsignedChar", 'C'},
        {"unsignedInt", 'I'},
        {"unsignedLong", 'L'},
        {"unsignedLongLong", 'Q'},
        {"unsignedShort", 'S'},
        {"longNumber", 'l'},
        {"longLong", 'q'},
        {"shortNumber", 's'},
        {"single", 'f'},
        {"real", 'd'},
        {"selector", ':'},
        {"structure", '{'},
        {"pointer", '^'},
        {"text", '*'},
        {"longDouble", 'D'},
        {"type", '#'},
        {"enabled", 'c', false, "isOn"},
        {"style", 'i', false, "currentStyle", "chooseStyle:"},
        {"own", '@', true},
        {"URLString", '@'},
        {"x", 'd'},
    };
    return kRows;
  }
  std::optional<std::string> suiteName() const { return kTestSuite; }

  template <typename T>
  T getter(std::string_view name) const {
    return read<T>(name);
  }
  template <typename T>
  void setter(std::string_view name, const T& value) {
    write<T>(name, value);
  }
};

// A class with one property that declares nothing else.
class Plain : public VXUserDefaults {
 public:
  using VXUserDefaults::VXUserDefaults;
  static std::span<const Property> properties() {
    static constexpr Property kRows[] = {{"abc", '@'}};
    return kRows;
  }
};

class EmptySuite : public Plain {
 public:
  using Plain::Plain;
  std::optional<std::string> suitName() const { return ""; }
};

class NilSuite : public Plain {
 public:
  using Plain::Plain;
  std::optional<std::string> suiteName() const { return std::nullopt; }
};

class BothNames : public Plain {
 public:
  using Plain::Plain;
  std::optional<std::string> suitName() const { return "com.vessok.suit"; }
  std::optional<std::string> suiteName() const { return "com.vessok.suite"; }
};

class NilSuitWins : public Plain {
 public:
  using Plain::Plain;
  std::optional<std::string> suitName() const { return std::nullopt; }
  std::optional<std::string> suiteName() const { return "com.vessok.suite"; }
};

class WithDefaults : public VXUserDefaults {
 public:
  using VXUserDefaults::VXUserDefaults;
  static std::span<const Property> properties() {
    static constexpr Property kRows[] = {{"flag", 'c'}, {"object", '@'}, {"number", 'i'}};
    return kRows;
  }
  std::optional<std::string> suiteName() const { return kTestSuite; }
  Value::Dictionary setupDefaults() const {
    return {{"flag", true}, {"object", "fallback"}, {"number", 7}, {"undeclared", 1}};
  }
  bool flag() const { return read<bool>("flag"); }
  void setFlag(bool value) { write("setFlag:", value); }
};

class OtherWithDefaults : public WithDefaults {
 public:
  using WithDefaults::WithDefaults;
};

class NilDefaults : public Plain {
 public:
  using Plain::Plain;
  std::optional<Value::Dictionary> setupDefaults() const { return std::nullopt; }
};

class UpperCaseKeys : public WithDefaults {
 public:
  using WithDefaults::WithDefaults;
  std::string transformKey(const std::string& key) const override { return "<" + key + ">"; }
};

class AddsNone : public WithDefaults {
 public:
  using WithDefaults::WithDefaults;
  static std::span<const Property> properties() { return {}; }
};

class Unborn : public Plain {
 public:
  using Plain::Plain;
  bool init() override { return false; }
};

class Colliding : public VXUserDefaults {
 public:
  using VXUserDefaults::VXUserDefaults;
  static std::span<const Property> properties() {
    static constexpr Property kRows[] = {{"first", 'i', false, "shared"},
                                         {"shared", '@'},
                                         {"taken", '@', false, "own"},
                                         {"own", '@', true}};
    return kRows;
  }
};

class Overriding : public Plain {
 public:
  using Plain::Plain;
  void didChangeValueForKey(const std::string& key) override { changed.push_back(key); }
  std::vector<std::string> changed;
};

class UserDefaultsTest : public testing::Test {
 protected:
  ScopedPlatform platform_;

  std::shared_ptr<DefaultsStore> suite(const std::string& name = kTestSuite) {
    return platform_.defaultsStores().initWithSuiteName(name);
  }
};

TEST_F(UserDefaultsTest, WithASuiteTheKeyIsTheSuiteADotAndTheName) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->prefix(), kTestSuite);
  EXPECT_EQ(defaults->defaultsKeyForPropertyNamed("abc"), "com.vessok.test.suite.abc");
  EXPECT_EQ(defaults->_suiteName(), kTestSuite);
}

TEST_F(UserDefaultsTest, WithoutASuiteTheKeyIsTheNameInTheStandardStore) {
  const auto defaults = VXUserDefaults::make<Plain>();
  EXPECT_EQ(defaults->prefix(), std::nullopt);
  EXPECT_EQ(defaults->_suiteName(), std::nullopt);
  EXPECT_EQ(defaults->defaultsKeyForPropertyNamed("abc"), "abc");
  EXPECT_EQ(defaults->userDefaults(), platform_.defaultsStores().standardUserDefaults());
}

TEST_F(UserDefaultsTest, AnEmptySuiteNameMeansTheStandardStoreWithoutPrefix) {
  const auto defaults = VXUserDefaults::make<EmptySuite>();
  EXPECT_EQ(defaults->_suiteName(), "");
  EXPECT_EQ(defaults->prefix(), std::nullopt);
  EXPECT_EQ(defaults->defaultsKeyForPropertyNamed("abc"), "abc");
  EXPECT_EQ(defaults->userDefaults(), platform_.defaultsStores().standardUserDefaults());
}

TEST_F(UserDefaultsTest, ANilSuiteNameMeansTheStandardStoreWithoutPrefix) {
  const auto defaults = VXUserDefaults::make<NilSuite>();
  EXPECT_EQ(defaults->prefix(), std::nullopt);
  EXPECT_EQ(defaults->userDefaults(), platform_.defaultsStores().standardUserDefaults());
}

TEST_F(UserDefaultsTest, SuitNameComesBeforeSuiteName) {
  EXPECT_EQ(VXUserDefaults::make<BothNames>()->prefix(), "com.vessok.suit");
}

TEST_F(UserDefaultsTest, ASuitNameThatAnswersNilStillComesBeforeSuiteName) {
  const auto defaults = VXUserDefaults::make<NilSuitWins>();
  EXPECT_EQ(defaults->_suiteName(), std::nullopt);
  EXPECT_EQ(defaults->prefix(), std::nullopt);
}

TEST_F(UserDefaultsTest, TheBaseClassItselfWorksWithoutProperties) {
  const auto defaults = VXUserDefaults::make<VXUserDefaults>();
  ASSERT_NE(defaults, nullptr);
  EXPECT_TRUE(defaults->mapping().empty());
  EXPECT_TRUE(defaults->get("abc").isNull());
}

TEST_F(UserDefaultsTest, ASetterNameIsSetAndTheNameWithACapital) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->defaultsKeyForSelector("setX:"), "com.vessok.test.suite.x");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setURLString:"), "com.vessok.test.suite.URLString");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setUnsignedLongLong:"),
            "com.vessok.test.suite.unsignedLongLong");
}

TEST_F(UserDefaultsTest, ACustomGetterAndItsSetterMapToTheKeyOfTheProperty) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->defaultsKeyForSelector("isOn"), "com.vessok.test.suite.enabled");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setEnabled:"), "com.vessok.test.suite.enabled");
  EXPECT_EQ(defaults->defaultsKeyForSelector("enabled"), std::nullopt);
  defaults->setter("setEnabled:", true);
  EXPECT_TRUE(defaults->getter<bool>("isOn"));
  EXPECT_EQ(suite()->objectForKey("com.vessok.test.suite.enabled"), Value(true));
}

TEST_F(UserDefaultsTest, ACustomSetterReplacesTheDerivedName) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->defaultsKeyForSelector("chooseStyle:"), "com.vessok.test.suite.style");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setStyle:"), std::nullopt);
  defaults->setter("chooseStyle:", 4);
  EXPECT_EQ(defaults->getter<int>("currentStyle"), 4);
}

TEST_F(UserDefaultsTest, ASelectorThatIsNotMappedHasNoKey) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->defaultsKeyForSelector("setObject"), std::nullopt);
  EXPECT_EQ(defaults->defaultsKeyForSelector(""), std::nullopt);
}

TEST_F(UserDefaultsTest, ASelectorThatIsNotMappedReadsNothingAndWritesNothing) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->setMapping({});
  defaults->setter("setNumber:", 5);
  EXPECT_EQ(defaults->getter<int>("number"), 0);
  EXPECT_FALSE(defaults->getter<bool>("flag"));
  EXPECT_TRUE(defaults->getter<Value>("object").isNull());
  EXPECT_TRUE(suite()->objectForKey("com.vessok.test.suite.number").isNull());
}

TEST_F(UserDefaultsTest, AccessorsFindTheirKeyThroughTheMapping) {
  const auto defaults = VXUserDefaults::make<Everything>();
  auto mapping = defaults->mapping();
  mapping["setNumber:"] = "another.key";
  mapping["number"] = "another.key";
  defaults->setMapping(mapping);
  defaults->setter("setNumber:", 5);
  EXPECT_EQ(defaults->getter<int>("number"), 5);
  EXPECT_EQ(suite()->integerForKey("another.key"), 5);
}

TEST_F(UserDefaultsTest, GeneratingAgainRebuildsTheMapping) {
  const auto defaults = VXUserDefaults::make<Everything>();
  const auto mapping = defaults->mapping();
  defaults->setMapping({{"stale", "key"}});
  defaults->generateAccessorMethods();
  EXPECT_EQ(defaults->mapping(), mapping);
}

TEST_F(UserDefaultsTest, TheMappingHasTwoEntriesForEachProperty) {
  EXPECT_EQ(VXUserDefaults::make<Everything>()->mapping().size(),
            2 * Everything::properties().size());
}

TEST_F(UserDefaultsTest, TwoInstancesHaveTheirOwnMappingsWithTheSameContent) {
  const auto first = VXUserDefaults::make<Everything>();
  const auto second = VXUserDefaults::make<Everything>();
  EXPECT_EQ(first->mapping(), second->mapping());
  first->setMapping({});
  EXPECT_FALSE(second->mapping().empty());
  EXPECT_EQ(second->typesOfAccessor("number"), "i@:");
}

TEST_F(UserDefaultsTest, AnAccessorsTypesAreTheCharacterAndTheGettersSignature) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->typesOfAccessor("flag"), "B@:");
  EXPECT_EQ(defaults->typesOfAccessor("setFlag:"), "B@:");
  EXPECT_EQ(defaults->typesOfAccessor("isOn"), "c@:");
  EXPECT_EQ(defaults->typesOfAccessor("nothing"), std::nullopt);
}

TEST_F(UserDefaultsTest, APropertyWithItsOwnAccessorsIsMappedAndNeverStored) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->defaultsKeyForSelector("own"), "com.vessok.test.suite.own");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setOwn:"), "com.vessok.test.suite.own");
  defaults->set("setOwn:", "value");
  EXPECT_TRUE(defaults->get("own").isNull());
  EXPECT_TRUE(suite()->objectForKey("com.vessok.test.suite.own").isNull());
}

TEST_F(UserDefaultsTest, AddingNeverReplacesAnAccessor) {
  const auto defaults = VXUserDefaults::make<Colliding>();
  EXPECT_EQ(defaults->typesOfAccessor("shared"), "i@:");
  EXPECT_EQ(defaults->defaultsKeyForSelector("shared"), "shared");
  defaults->userDefaults()->setObject("stored", "own");
  EXPECT_TRUE(defaults->get("own").isNull()) << "the class's own accessor was replaced";
}

TEST_F(UserDefaultsTest, APropertyOfAnUnsupportedTypeIsMappedAndDoesNothing) {
  const auto defaults = VXUserDefaults::make<Everything>();
  int notified = 0;
  for (const char* name : {"selector", "structure", "pointer", "text", "longDouble", "type"}) {
    const std::string key = std::string(kTestSuite) + "." + name;
    EXPECT_EQ(defaults->defaultsKeyForSelector(name), key);
    EXPECT_TRUE(defaults->typesOfAccessor(name)) << name;
    const auto observation = defaults->addObserver(
        key, [&](const std::string&, VXUserDefaults::ValueChange) { ++notified; });
    std::string setter = std::string("set") + name + ":";
    setter[3] = static_cast<char>(std::toupper(setter[3]));
    EXPECT_EQ(defaults->defaultsKeyForSelector(setter), key);
    defaults->set(setter, 5);
    EXPECT_TRUE(defaults->get(name).isNull());
    EXPECT_TRUE(suite()->objectForKey(key).isNull());
  }
  EXPECT_EQ(notified, 0);
}

TEST_F(UserDefaultsTest, InheritedPropertiesAreNotListed) {
  const auto defaults = VXUserDefaults::make<AddsNone>();
  EXPECT_TRUE(defaults->mapping().empty());
  defaults->setFlag(true);
  EXPECT_FALSE(defaults->flag());
}

TEST_F(UserDefaultsTest, AnObjectComesBackEqual) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_TRUE(defaults->getter<Value>("object").isNull());
  for (const Value& object :
       {Value("text"), Value(""), Value(true), Value(-1), Value(0.5), Value(Data{1, 2}),
        Value(Date{5}), Value(Value::Array{1, "two"}), Value(Value::Dictionary{{"a", 1}})}) {
    defaults->setter("setObject:", object);
    EXPECT_TRUE(defaults->getter<Value>("object") == object);
  }
}

TEST_F(UserDefaultsTest, SettingAnObjectToNilRemovesTheKey) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->setter("setObject:", Value("text"));
  defaults->setter("setObject:", Value());
  EXPECT_TRUE(defaults->getter<Value>("object").isNull());
  EXPECT_TRUE(suite()->objectForKey("com.vessok.test.suite.object").isNull());
}

TEST_F(UserDefaultsTest, AnObjectThatNoStoreCanHoldThrows) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_THROW(defaults->setter("setObject:", Value(Url::fileURLWithPath("/tmp"))),
               PlatformException);
}

TEST_F(UserDefaultsTest, BothBooleanTypesKeepYesAndNo) {
  const auto defaults = VXUserDefaults::make<Everything>();
  for (const char* name : {"flag", "character"}) {
    const std::string setter = name == std::string("flag") ? "setFlag:" : "setCharacter:";
    EXPECT_FALSE(defaults->getter<bool>(name));
    defaults->setter(setter, true);
    EXPECT_TRUE(defaults->getter<bool>(name));
    EXPECT_EQ(suite()->objectForKey(std::string(kTestSuite) + "." + name), Value(true));
    defaults->setter(setter, false);
    EXPECT_FALSE(defaults->getter<bool>(name));
    EXPECT_EQ(suite()->objectForKey(std::string(kTestSuite) + "." + name), Value(false));
  }
}

TEST_F(UserDefaultsTest, ACharSetToFiveReadsOne) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->setter<signed char>("setCharacter:", 5);
  EXPECT_EQ(defaults->getter<signed char>("character"), 1);
}

TEST_F(UserDefaultsTest, ANegativeCharReadsOne) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->setter<signed char>("setCharacter:", -128);
  EXPECT_EQ(defaults->getter<signed char>("character"), 1);
}

TEST_F(UserDefaultsTest, AnIntKeepsMinusOneAndItsBounds) {
  const auto defaults = VXUserDefaults::make<Everything>();
  for (const int value : {-1, 0, 1, INT_MIN, INT_MAX}) {
    defaults->setter("setNumber:", value);
    EXPECT_EQ(defaults->getter<int>("number"), value);
    EXPECT_EQ(suite()->integerForKey("com.vessok.test.suite.number"), value);
  }
}

TEST_F(UserDefaultsTest, AStoredNumberBeyondAnIntIsTruncated) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->userDefaults()->setInteger((std::int64_t{1} << 32) + 7, "com.vessok.test.suite.number");
  EXPECT_EQ(defaults->getter<int>("number"), 7);
  EXPECT_EQ(defaults->get("number"), Value(7));
}

TEST_F(UserDefaultsTest, AnUnsignedIntIsStoredAsA64BitNumber) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->setter<unsigned int>("setUnsignedInt:", 4294967295U);
  EXPECT_EQ(defaults->getter<unsigned int>("unsignedInt"), 4294967295U);
  EXPECT_EQ(suite()->objectForKey("com.vessok.test.suite.unsignedInt"),
            Value(std::int64_t{4294967295}));
}

template <typename T>
void checkBounds(Everything& defaults, const std::string& getter, const std::string& setter) {
  EXPECT_EQ(defaults.getter<T>(getter), T{0}) << getter;
  for (const T value : {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T{1},
                        static_cast<T>(-1), T{0}}) {
    defaults.setter<T>(setter, value);
    EXPECT_EQ(defaults.getter<T>(getter), value) << getter;
  }
}

TEST_F(UserDefaultsTest, EveryOtherIntegerWidthKeepsItsBounds) {
  const auto defaults = VXUserDefaults::make<Everything>();
  checkBounds<unsigned char>(*defaults, "unsignedChar", "setUnsignedChar:");
  checkBounds<unsigned int>(*defaults, "unsignedInt", "setUnsignedInt:");
  checkBounds<unsigned long>(*defaults, "unsignedLong", "setUnsignedLong:");
  checkBounds<unsigned long long>(*defaults, "unsignedLongLong", "setUnsignedLongLong:");
  checkBounds<unsigned short>(*defaults, "unsignedShort", "setUnsignedShort:");
  checkBounds<long>(*defaults, "longNumber", "setLongNumber:");
  checkBounds<long long>(*defaults, "longLong", "setLongLong:");
  checkBounds<short>(*defaults, "shortNumber", "setShortNumber:");
}

TEST_F(UserDefaultsTest, TheLargestUnsignedNumberIsStoredAsMinusOne) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->setter<unsigned long long>("setUnsignedLongLong:", UINT64_MAX);
  EXPECT_EQ(suite()->objectForKey("com.vessok.test.suite.unsignedLongLong"),
            Value(std::int64_t{-1}));
}

TEST_F(UserDefaultsTest, ANumberStoredAsTextIsRead) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->userDefaults()->setObject("-42", "com.vessok.test.suite.longLong");
  EXPECT_EQ(defaults->getter<long long>("longLong"), -42);
}

TEST_F(UserDefaultsTest, AFloatKeepsItsBounds) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->getter<float>("single"), 0.0F);
  for (const float value :
       {0.1F, -1.5F, std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(),
        std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity()}) {
    defaults->setter("setSingle:", value);
    EXPECT_EQ(defaults->getter<float>("single"), value);
  }
  defaults->setter("setSingle:", std::nanf(""));
  EXPECT_TRUE(std::isnan(defaults->getter<float>("single")));
}

TEST_F(UserDefaultsTest, ADoubleKeepsItsBounds) {
  const auto defaults = VXUserDefaults::make<Everything>();
  EXPECT_EQ(defaults->getter<double>("real"), 0.0);
  for (const double value :
       {0.1, -1.5, std::numeric_limits<double>::max(), std::numeric_limits<double>::lowest(),
        std::numeric_limits<double>::denorm_min(), -std::numeric_limits<double>::infinity()}) {
    defaults->setter("setReal:", value);
    EXPECT_EQ(defaults->getter<double>("real"), value);
  }
  defaults->setter("setReal:", std::nan(""));
  EXPECT_TRUE(std::isnan(defaults->getter<double>("real")));
}

TEST_F(UserDefaultsTest, AccessorsWorkBySelectorWithConversions) {
  const auto defaults = VXUserDefaults::make<Everything>();
  defaults->set("setFlag:", 3);
  EXPECT_EQ(defaults->get("flag"), Value(true));
  defaults->set("setNumber:", "12");
  EXPECT_EQ(defaults->get("number"), Value(12));
  defaults->set("setLongLong:", INT64_MIN);
  EXPECT_EQ(defaults->get("longLong"), Value(INT64_MIN));
  defaults->set("setReal:", 2);
  EXPECT_EQ(defaults->get("real"), Value(2.0));
  defaults->set("setSingle:", 0.5);
  EXPECT_EQ(defaults->get("single"), Value(0.5));
}

TEST_F(UserDefaultsTest, ARegisteredDefaultIsReadUntilAValueIsSet) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  EXPECT_TRUE(defaults->flag());
  defaults->setFlag(false);
  EXPECT_FALSE(defaults->flag());
  EXPECT_FALSE(VXUserDefaults::make<WithDefaults>()->flag());
  EXPECT_EQ(suite()->objectForKey("com.vessok.test.suite.flag"), Value(false));
}

TEST_F(UserDefaultsTest, RegisteredDefaultsAreNeverWritten) {
  VXUserDefaults::make<WithDefaults>()->setFlag(true);
  const auto fresh = suite();
  EXPECT_TRUE(fresh->objectForKey("com.vessok.test.suite.object").isNull());
  EXPECT_TRUE(fresh->objectForKey("com.vessok.test.suite.number").isNull());
}

TEST_F(UserDefaultsTest, DefaultsAreRegisteredUnderTheDerivedKeys) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  const auto& store = defaults->userDefaults();
  EXPECT_EQ(store->objectForKey("com.vessok.test.suite.number"), Value(7));
  EXPECT_TRUE(store->objectForKey("number").isNull());
  EXPECT_EQ(store->objectForKey("com.vessok.test.suite.undeclared"), Value(1));
}

TEST_F(UserDefaultsTest, SettingNilBringsTheRegisteredDefaultBack) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  defaults->set("setObject:", "stored");
  EXPECT_EQ(defaults->get("object"), Value("stored"));
  defaults->set("setObject:", nullptr);
  EXPECT_EQ(defaults->get("object"), Value("fallback"));
}

TEST_F(UserDefaultsTest, NilDefaultsRegisterNothing) {
  const auto defaults = VXUserDefaults::make<NilDefaults>();
  EXPECT_TRUE(defaults->get("abc").isNull());
}

TEST_F(UserDefaultsTest, AnOverriddenTransformationReplacesThePrefixEverywhere) {
  const auto defaults = VXUserDefaults::make<UpperCaseKeys>();
  EXPECT_EQ(defaults->_transformKey("abc"), "<abc>");
  EXPECT_EQ(defaults->defaultsKeyForPropertyNamed("flag"), "<flag>");
  EXPECT_EQ(defaults->defaultsKeyForSelector("setFlag:"), "<flag>");
  EXPECT_EQ(defaults->userDefaults()->objectForKey("<number>"), Value(7));
  defaults->setFlag(false);
  EXPECT_EQ(suite()->objectForKey("<flag>"), Value(false));
}

TEST_F(UserDefaultsTest, ObserversAreToldTheDerivedKeyOnceBeforeAndOnceAfterTheWrite) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  std::vector<std::string> told;
  const auto observation = defaults->addObserver(
      "com.vessok.test.suite.flag",
      [&](const std::string& key, VXUserDefaults::ValueChange change) {
        const bool before = change == VXUserDefaults::ValueChange::before;
        told.push_back(key + (before ? " before " : " after ") + (defaults->flag() ? "yes" : "no"));
      });
  defaults->setFlag(false);
  EXPECT_EQ(told, (std::vector<std::string>{"com.vessok.test.suite.flag before yes",
                                            "com.vessok.test.suite.flag after no"}));
}

TEST_F(UserDefaultsTest, TheAfterCallComesWhenTheValueIsOnDisk) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  std::optional<Value> onDisk;
  const auto observation =
      defaults->addObserver("com.vessok.test.suite.flag",
                            [&](const std::string& key, VXUserDefaults::ValueChange change) {
                              if (change == VXUserDefaults::ValueChange::after)
                                onDisk = suite()->objectForKey(key);
                            });
  defaults->setFlag(false);
  EXPECT_EQ(onDisk, Value(false));
}

TEST_F(UserDefaultsTest, AnObserverOfThePropertyNameIsNotCalled) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  int calls = 0;
  const auto observation = defaults->addObserver(
      "flag", [&](const std::string&, VXUserDefaults::ValueChange) { ++calls; });
  defaults->setFlag(false);
  EXPECT_EQ(calls, 0);
}

TEST_F(UserDefaultsTest, AnEndedObservationIsNotCalled) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  int calls = 0;
  auto observation =
      defaults->addObserver("com.vessok.test.suite.flag",
                            [&](const std::string&, VXUserDefaults::ValueChange) { ++calls; });
  defaults->setFlag(false);
  observation.cancel();
  defaults->setFlag(true);
  EXPECT_EQ(calls, 2);
}

TEST_F(UserDefaultsTest, AnObservationMayOutliveTheObject) {
  auto defaults = VXUserDefaults::make<WithDefaults>();
  auto observation =
      defaults->addObserver("key", [](const std::string&, VXUserDefaults::ValueChange) {});
  defaults = nullptr;
  observation.cancel();
}

TEST_F(UserDefaultsTest, ObserversOfOtherInstancesAreNotCalled) {
  const auto first = VXUserDefaults::make<WithDefaults>();
  const auto second = VXUserDefaults::make<WithDefaults>();
  int calls = 0;
  const auto observation =
      second->addObserver("com.vessok.test.suite.flag",
                          [&](const std::string&, VXUserDefaults::ValueChange) { ++calls; });
  first->setFlag(false);
  EXPECT_EQ(calls, 0);
}

TEST_F(UserDefaultsTest, ASubclassMayReplaceTheChangeNotification) {
  const auto defaults = VXUserDefaults::make<Overriding>();
  defaults->set("setAbc:", "value");
  EXPECT_EQ(defaults->changed, std::vector<std::string>{"abc"});
}

TEST_F(UserDefaultsTest, ASetterWithTheSameValueNotifiesAgain) {
  const auto defaults = VXUserDefaults::make<Overriding>();
  defaults->set("setAbc:", "value");
  defaults->set("setAbc:", "value");
  EXPECT_EQ(defaults->changed.size(), 2U);
}

TEST_F(UserDefaultsTest, AValueOfAnotherInstanceIsSeenAtTheNextRead) {
  const auto first = VXUserDefaults::make<WithDefaults>();
  const auto second = VXUserDefaults::make<WithDefaults>();
  EXPECT_TRUE(second->flag());
  first->setFlag(false);
  EXPECT_FALSE(second->flag());
}

TEST_F(UserDefaultsTest, TheStoreIsMadeOnceAndCanBeReplaced) {
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  const auto store = defaults->userDefaults();
  EXPECT_EQ(defaults->userDefaults(), store);
  const auto other = suite("com.vessok.other");
  defaults->setUserDefaults(other);
  EXPECT_EQ(defaults->userDefaults(), other);
  defaults->setFlag(true);
  EXPECT_EQ(suite("com.vessok.other")->objectForKey("com.vessok.test.suite.flag"), Value(true));
}

TEST_F(UserDefaultsTest, EachInstanceOfASuiteHasItsOwnStore) {
  EXPECT_NE(VXUserDefaults::make<WithDefaults>()->userDefaults(),
            VXUserDefaults::make<WithDefaults>()->userDefaults());
}

// Stores that cannot be had.
class NoStores : public ForwardingDefaultsStores {
 public:
  using ForwardingDefaultsStores::ForwardingDefaultsStores;
  std::shared_ptr<DefaultsStore> initWithSuiteName(const std::string&) override { return nullptr; }
};

TEST_F(UserDefaultsTest, WithoutAStoreEverythingReadsAsNothing) {
  NoStores none(platform_.defaultsStores());
  platform_.services().defaultsStores = &none;
  const auto defaults = VXUserDefaults::make<WithDefaults>();
  ASSERT_NE(defaults, nullptr);
  defaults->setFlag(true);
  EXPECT_FALSE(defaults->flag());
  EXPECT_EQ(defaults->prefix(), kTestSuite);
}

TEST_F(UserDefaultsTest, AnInitThatFailsGivesNil) {
  EXPECT_EQ(VXUserDefaults::make<Unborn>(), nullptr);
}

TEST_F(UserDefaultsTest, EachClassHasOneSharedInstance) {
  const auto shared = VXUserDefaults::standardUserDefaults<WithDefaults>();
  ASSERT_NE(shared, nullptr);
  EXPECT_EQ(VXUserDefaults::standardUserDefaults<WithDefaults>(), shared);
  const std::shared_ptr<VXUserDefaults> other =
      VXUserDefaults::standardUserDefaults<OtherWithDefaults>();
  EXPECT_NE(other, shared);
  EXPECT_NE(VXUserDefaults::make<WithDefaults>(), shared);
  shared->setUserDefaults(suite());
  shared->setFlag(false);
  EXPECT_FALSE(shared->flag());
}

TEST_F(UserDefaultsTest, ASharedInstanceThatCannotBeMadeIsNil) {
  EXPECT_EQ(VXUserDefaults::standardUserDefaults<Unborn>(), nullptr);
}

class CountedShared : public Plain {
 public:
  explicit CountedShared(const Birth& birth) : Plain(birth) { ++births; }
  static std::atomic<int> births;
};
std::atomic<int> CountedShared::births = 0;

TEST_F(UserDefaultsTest, ManyThreadsGetTheSameSharedInstance) {
  std::vector<std::shared_ptr<CountedShared>> got(8);
  std::vector<std::thread> threads;
  for (auto& slot : got) {
    threads.emplace_back([&slot] { slot = VXUserDefaults::standardUserDefaults<CountedShared>(); });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& instance : got) EXPECT_EQ(instance, got[0]);
  EXPECT_EQ(CountedShared::births, 1);
}

TEST_F(UserDefaultsTest, InstancesOfManyThreadsReadAndWriteTheSameSuite) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([number] {
      for (int turn = 0; turn < 20; ++turn) {
        const auto defaults = VXUserDefaults::make<Everything>();
        if (number % 2 == 0) {
          defaults->setter("setNumber:", turn);
        } else {
          const int value = defaults->getter<int>("number");
          EXPECT_TRUE(value >= 0 && value < 20);
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(VXUserDefaults::make<Everything>()->getter<int>("number"), 19);
}

}  // namespace
}  // namespace tervano
