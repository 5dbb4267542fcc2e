#include "tools/defaults/domain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tervano {
namespace {

using testing::ElementsAre;

TEST(DomainTest, ADomainOwnsTheSchemaOfItsNameAndThoseBelowIt) {
  EXPECT_TRUE(domainOwnsSchema("org.gnome.gedit", "org.gnome.gedit"));
  EXPECT_TRUE(domainOwnsSchema("org.gnome.gedit", "org.gnome.gedit.plugins.time"));
}

TEST(DomainTest, CaseDoesNotCount) {
  EXPECT_TRUE(domainOwnsSchema("org.gnome.Nautilus", "org.gnome.nautilus.preferences"));
  EXPECT_TRUE(domainOwnsSchema("org.gnome.nautilus", "org.gnome.Nautilus"));
}

TEST(DomainTest, NamesAreMatchedAtDotsOnly) {
  EXPECT_FALSE(domainOwnsSchema("org.gnome.gedit", "org.gnome.geditx"));
  EXPECT_FALSE(domainOwnsSchema("org.gnome.gedit", "org.gnome.gedit-plugins.time"));
  EXPECT_FALSE(domainOwnsSchema("org.gnome.gedit", "org.gnome.gedi"));
  EXPECT_FALSE(domainOwnsSchema("org.gnome.gedit", "org.gnome"));
  EXPECT_FALSE(domainOwnsSchema("org.gnome.gedit", "org.gnomeXgedit"));
  EXPECT_FALSE(domainOwnsSchema("org.gnome.gedit", ""));
}

TEST(DomainTest, OnlyLettersOfASCIIHaveCase) {
  EXPECT_TRUE(isEqualWithoutCase("aZ-9", "Az-9"));
  EXPECT_FALSE(isEqualWithoutCase("a[", "a{"));
  EXPECT_FALSE(isEqualWithoutCase("\xC3\xA4", "\xC3\x84"));
  EXPECT_FALSE(isEqualWithoutCase("a", "ab"));
}

TEST(DomainTest, ANameIsTakenApartAtItsDots) {
  EXPECT_THAT(partsOfDomain("org.example.App"), ElementsAre("org", "example", "App"));
  EXPECT_THAT(partsOfDomain(".a."), ElementsAre("", "a", ""));
  EXPECT_THAT(partsOfDomain(""), ElementsAre(""));
}

TEST(DomainTest, ApplicationsNamesAreAccepted) {
  for (const auto* name : {"org.gnome.gedit", "ca.desrt.dconf-editor", "com.example.My_App2",
                           "org.example.W\xC3\xB6rter", "a.b.c", "-x.y.z", "a.b.*"}) {
    EXPECT_EQ(refusalOfDomain(name), "") << name;
  }
  EXPECT_EQ(refusalOfDomain("a.b." + std::string(251, 'c')), "");
}

TEST(DomainTest, ANameOfFewerThanThreePartsIsTooGeneral) {
  for (const auto* name : {"org", "org.gnome", "gedit", "*", "-x"}) {
    EXPECT_THAT(refusalOfDomain(name), testing::StartsWith("is too general: ")) << name;
  }
}

TEST(DomainTest, WhatIsNoNameIsRefused) {
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("../../x"),
        std::string("org..gnome"), std::string("org.gnome."), std::string(".org.gnome.gedit"),
        std::string("org.gnome.gedit/x"), std::string("org.gnome.ge\ndit"),
        std::string("org.gnome.\x7F"), std::string("org.gnome.\xFF"), std::string("a.b.\0", 5)}) {
    EXPECT_EQ(refusalOfDomain(name), "is no application's name") << name;
  }
  EXPECT_EQ(refusalOfDomain("a.b." + std::string(252, 'c')),
            "is longer than any application's name");
}

}  // namespace
}  // namespace tervano
