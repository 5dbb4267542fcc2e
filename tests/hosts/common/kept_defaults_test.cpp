#include "hosts/common/kept_defaults.h"

#include <gtest/gtest.h>

#include "tests/support/scoped_platform.h"

namespace tervano::test {

class KeptDefaultsTest : public testing::Test {
 protected:
  std::shared_ptr<DefaultsStore> newStore() {
    return platform_.defaultsStores().initWithSuiteName("suite");
  }
  // As another process does it.
  void write(const Value& value, const std::string& key) {
    const auto store = newStore();
    store->setObject(value, key);
    ASSERT_TRUE(store->synchronize());
  }

  ScopedPlatform platform_;
};

TEST_F(KeptDefaultsTest, WhatWasReadIsKept) {
  write(7, "number");
  write(true, "switch");
  write(2.5, "real");
  const KeptDefaults kept(newStore());
  EXPECT_EQ(kept.integerForKey("number"), 7);
  EXPECT_TRUE(kept.boolForKey("switch"));
  EXPECT_EQ(kept.floatForKey("real"), 2.5F);
  EXPECT_TRUE(kept.objectForKey("missing").isNull());
  for (const char* key : {"number", "real", "missing"}) write(8, key);
  write(false, "switch");
  EXPECT_EQ(kept.integerForKey("number"), 7);
  EXPECT_TRUE(kept.boolForKey("switch"));
  EXPECT_EQ(kept.doubleForKey("real"), 2.5);
  EXPECT_TRUE(kept.objectForKey("missing").isNull());
  EXPECT_EQ(KeptDefaults(newStore()).integerForKey("number"), 8);
}

TEST_F(KeptDefaultsTest, WhatIsSetGoesThroughAndIsReadAnew) {
  KeptDefaults kept(newStore());
  EXPECT_EQ(kept.integerForKey("a"), 0);
  kept.setInteger(1, "a");
  kept.setBool(true, "b");
  kept.setFloat(0.5F, "c");
  kept.setDouble(0.25, "d");
  kept.setObject("text", "e");
  EXPECT_EQ(kept.integerForKey("a"), 1);
  EXPECT_TRUE(kept.boolForKey("b"));
  EXPECT_EQ(kept.doubleForKey("c"), 0.5);
  EXPECT_EQ(kept.doubleForKey("d"), 0.25);
  EXPECT_EQ(kept.objectForKey("e"), Value("text"));
  kept.removeObjectForKey("e");
  EXPECT_TRUE(kept.objectForKey("e").isNull());
  kept.registerDefaults({{"e", "fallback"}});
  EXPECT_EQ(kept.objectForKey("e"), Value("fallback"));
  ASSERT_TRUE(kept.synchronize());
  EXPECT_EQ(newStore()->integerForKey("a"), 1);
}

}  // namespace tervano::test
