#include "archive/platform_exception.h"

#include <gtest/gtest.h>

#include "archive/coding.h"

namespace tervano {
namespace {

// Of external linkage and not inlined, so that it has a frame and a name.
[[gnu::noinline]] PlatformException makeExceptionHere() {
  return {"TheName", "the reason"};
}

TEST(PlatformExceptionTest, WhatIsNameAndReason) {
  const PlatformException exception("TheName", "the reason");
  EXPECT_EQ(exception.name(), "TheName");
  EXPECT_EQ(exception.reason(), "the reason");
  EXPECT_STREQ(exception.what(), "TheName: the reason");
}

TEST(PlatformExceptionTest, TheCallStackHasOneLineForEachFrame) {
  const std::vector<std::string> symbols = makeExceptionHere().callStackSymbols();
  ASSERT_GE(symbols.size(), 3U);
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    EXPECT_EQ(symbols[i].find('\n'), std::string::npos);
    EXPECT_TRUE(symbols[i].starts_with(std::to_string(i))) << symbols[i];
    EXPECT_NE(symbols[i].find("0x"), std::string::npos) << symbols[i];
  }
}

TEST(PlatformExceptionTest, TheCallStackNamesTheProgram) {
  const std::vector<std::string> symbols = makeExceptionHere().callStackSymbols();
  EXPECT_NE(symbols.front().find("archive_tests"), std::string::npos) << symbols.front();
}

TEST(PlatformExceptionTest, ACopyKeepsTheCallStack) {
  const PlatformException original("a", "b");
  PlatformException copy("c", "d");
  copy = original;
  EXPECT_EQ(copy.callStackSymbols(), original.callStackSymbols());
}

class Blank : public Coding {
 public:
  std::string_view className() const override { return "Blank"; }
  void initWithCoder(Unarchiver&) override {}
  void encodeWithCoder(Archiver&) const override {}
};

TEST(ClassRegistryTest, AnUnknownClassHasNeitherChainNorBlank) {
  const ClassRegistry registry;
  EXPECT_EQ(registry.chain("Blank"), nullptr);
  EXPECT_EQ(registry.makeBlank("Blank"), nullptr);
}

TEST(ClassRegistryTest, AnAbstractClassHasAChainButNoBlank) {
  ClassRegistry registry;
  registry.registerClass({"Base", "NSObject"}, nullptr);
  ASSERT_NE(registry.chain("Base"), nullptr);
  EXPECT_EQ(*registry.chain("Base"), (std::vector<std::string>{"Base", "NSObject"}));
  EXPECT_EQ(registry.makeBlank("Base"), nullptr);
}

TEST(ClassRegistryTest, EachBlankIsAnObjectOfItsOwn) {
  ClassRegistry registry;
  registry.registerClass({"Blank", "NSObject"}, [] { return std::make_shared<Blank>(); });
  const auto first = registry.makeBlank("Blank");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->className(), "Blank");
  EXPECT_NE(first, registry.makeBlank("Blank"));
}

TEST(ClassRegistryTest, AnEmptyChainIsRefused) {
  ClassRegistry registry;
  EXPECT_THROW(registry.registerClass({}, nullptr), PlatformException);
}

}  // namespace
}  // namespace tervano
