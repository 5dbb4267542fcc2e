#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/raw_property_list.h"

namespace tervano {
namespace {

using testing::dataOf;

Value readDocument(std::string_view text) {
  return XMLPropertyListWithData(dataOf(text));
}

Value read(const std::string& element) {
  return readDocument("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
                      element + "</plist>");
}

Value xmlRoundTrip(const Value& value) {
  return XMLPropertyListWithData(XMLDataWithPropertyList(value));
}

TEST(XMLPropertyListTest, GoodElementsAreRead) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::pair<const char*, Value> cases[] = {
      {"<true/>", true},
      {"<true></true>", true},
      {"<false/>", false},
      {"<integer>42</integer>", 42},
      {"<integer> -42\n</integer>", -42},
      {"<integer>+42</integer>", 42},
      {"<integer>0x1F</integer>", 31},
      {"<integer>-0x1f</integer>", -31},
      {"<integer>9223372036854775807</integer>", INT64_MAX},
      {"<integer>-9223372036854775808</integer>", INT64_MIN},
      {"<integer>18446744073709551615</integer>", UINT64_MAX},
      {"<real>2.5</real>", 2.5},
      {"<real> -2.5e-3 </real>", -0.0025},
      {"<real>+1</real>", 1.0},
      {"<real>.5</real>", 0.5},
      {"<real>nan</real>", std::numeric_limits<double>::quiet_NaN()},
      {"<real>inf</real>", infinity},
      {"<real>+infinity</real>", infinity},
      {"<real>-Infinity</real>", -infinity},
      {"<date>2001-01-01T00:00:00Z</date>", Date{0}},
      {"<date>2000-12-31T23:59:59Z</date>", Date{-1}},
      {"<date>2004-02-29T12:00:00Z</date>", Date{99748800}},
      {"<date> 1970-01-01T00:00:00Z </date>", Date{-978307200}},
      {"<string/>", ""},
      {"<string>a &lt;&amp;&gt;&quot;&apos; b</string>", "a <&>\"' b"},
      {"<string>&#233;&#x1F600;</string>", "\xC3\xA9\xF0\x9F\x98\x80"},
      {"<string>  kept  </string>", "  kept  "},
      {"<string><![CDATA[<b>&amp;]]></string>", "<b>&amp;"},
      {"<string>a<!-- not this -->b</string>", "ab"},
      {"<data/>", Data()},
      {"<data>AAEC</data>", Data{0, 1, 2}},
      {"<data>\n\tAA EC\n\tAw==\n</data>", Data{0, 1, 2, 3}},
      {"<data>AAE=</data>", Data{0, 1}},
      {"<array/>", Value::Array()},
      {"<array> <true/> <!-- x --> <string>a</string> </array>", Value::Array{true, "a"}},
      {"<dict/>", Value::Dictionary()},
      {"<dict><key>a</key><true/><key>b</key><array><true/></array></dict>",
       Value::Dictionary{{"a", true}, {"b", Value::Array{true}}}},
      {"<dict><key>CF$UID</key><integer>7</integer></dict>", Uid{7}},
      {"<dict><key>CF$UID</key><integer>18446744073709551615</integer></dict>", Uid{UINT64_MAX}},
      {"<dict><key>CF$UID</key><integer>-7</integer></dict>", Value::Dictionary{{"CF$UID", -7}}},
      {"<dict><key>CF$UID</key><string>7</string></dict>", Value::Dictionary{{"CF$UID", "7"}}},
      {"<dict><key>CF$UID</key><integer>7</integer><key>a</key><true/></dict>",
       Value::Dictionary{{"CF$UID", 7}, {"a", true}}},
  };
  for (const auto& [element, expected] : cases) EXPECT_EQ(read(element), expected) << element;
}

TEST(XMLPropertyListTest, MalformedElementsAreRefused) {
  for (const char* element :
       {"", "text", "<true/><true/>", "<True/>", "<number>1</number>", "<null/>", "<key>a</key>",
        "<plist/>", "<true>x</true>", "<false> </false>",
        // Integers.
        "<integer/>", "<integer></integer>", "<integer>a</integer>", "<integer>1.5</integer>",
        "<integer>1 2</integer>", "<integer>--1</integer>", "<integer>+-1</integer>",
        "<integer>-</integer>", "<integer>0x</integer>", "<integer>0xg</integer>",
        "<integer>18446744073709551616</integer>", "<integer>-9223372036854775809</integer>",
        // Reals.
        "<real/>", "<real>a</real>", "<real>1,5</real>", "<real>--1</real>", "<real>1 2</real>",
        "<real>0x1p3</real>", "<real>1e</real>", "<real>nano</real>", "<real>nan(1)</real>",
        "<real>1e999</real>",
        // Dates.
        "<date/>", "<date>yesterday</date>", "<date>2001-01-01</date>",
        "<date>2001-13-01T00:00:00Z</date>", "<date>2001-00-01T00:00:00Z</date>",
        "<date>2001-02-29T00:00:00Z</date>", "<date>2001-01-00T00:00:00Z</date>",
        "<date>2001-01-01T24:00:00Z</date>", "<date>2001-01-01T00:60:00Z</date>",
        "<date>2001-01-01T00:00:60Z</date>", "<date>2001-01-01 00:00:00Z</date>",
        "<date>2001-01-01T00:00:00</date>", "<date>2001-01-01T00:00:00+00:00</date>",
        "<date>0000-01-01T00:00:00Z</date>", "<date>-001-01-01T00:00:00Z</date>",
        "<date>2001-1-1T0:0:0Z</date>",
        // Base64.
        "<data>A</data>", "<data>AA</data>", "<data>AAE</data>", "<data>AA=</data>",
        "<data>AAE==</data>", "<data>AAEC=</data>", "<data>AA==AA==</data>", "<data>=AAA</data>",
        "<data>AA*C</data>", "<data>A-_C</data>",
        // Structure.
        "<array>text</array>", "<array><key>a</key></array>", "<string><b/></string>",
        "<string><string>a</string></string>", "<array><plist/></array>", "<dict><true/></dict>",
        "<dict><key>a</key></dict>", "<dict><key>a</key><key>b</key><true/></dict>",
        "<dict><key>a</key><true/><true/></dict>", "<dict>text</dict>",
        "<dict><key>a</key><true/><key>a</key><true/></dict>",
        "<dict><key/><true/><key></key><true/></dict>", "<key>a</key><true/>",
        "<dict><string>a</string><true/></dict>",
        // No XML.
        "<array>", "</array>", "<array></dict>", "<string>&nothing;</string>", "<string>&</string>",
        "<string>\x01</string>", "<string>\xFF</string>", "<string>&#0;</string>",
        "<string>&#xD800;</string>", "<true", "<true a=b/>"}) {
    EXPECT_THROW(read(element), PlatformException) << element;
  }
}

TEST(XMLPropertyListTest, ADocumentThatIsNoPlistIsRefused) {
  for (const char* text :
       {"<array/>", "<html/>", "<plist/>", "<plist></plist>", "plain text", "\n",
        "<plist><true/></plist><plist><true/></plist>", "<plist><true/></plist>junk"}) {
    EXPECT_THROW(readDocument(text), PlatformException) << text;
  }
}

TEST(XMLPropertyListTest, TheDocumentTypeOfPropertyListsIsAccepted) {
  EXPECT_EQ(readDocument("<?xml version=\"1.0\"?><!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
                         "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">"
                         "<plist version=\"1.0\"><true/></plist>"),
            Value(true));
}

TEST(XMLPropertyListTest, EntityDeclarationsAreRefused) {
  EXPECT_THROW(readDocument("<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><true/></plist>"),
               PlatformException);
  EXPECT_THROW(readDocument("<!DOCTYPE plist [<!ENTITY % a \"b\">]><plist><true/></plist>"),
               PlatformException);
}

TEST(XMLPropertyListTest, ExternalEntitiesAreRefused) {
  EXPECT_THROW(readDocument("<!DOCTYPE plist [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>"
                            "<plist><string>&a;</string></plist>"),
               PlatformException);
  EXPECT_THROW(readDocument("<!DOCTYPE plist SYSTEM \"file:///etc/passwd\">"
                            "<plist><string>&a;</string></plist>"),
               PlatformException);
}

TEST(XMLPropertyListTest, DefaultAttributesAreRefused) {
  EXPECT_THROW(readDocument("<!DOCTYPE plist [<!ATTLIST array a CDATA \"b\">]>"
                            "<plist><array/></plist>"),
               PlatformException);
}

TEST(XMLPropertyListTest, OtherEncodingsOfTheDocumentAreRead) {
  EXPECT_EQ(readDocument("\xEF\xBB\xBF<plist><string>a</string></plist>"), Value("a"));
  EXPECT_EQ(readDocument("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"
                         "<plist><string>\xE9</string></plist>"),
            Value("\xC3\xA9"));
  const std::string plain = "<plist><string>a</string></plist>";
  std::string wide = "\xFE\xFF";
  for (const char c : plain) wide += std::string("\0", 1) + c;
  EXPECT_EQ(readDocument(wide), Value("a"));
}

TEST(XMLPropertyListTest, AnUnknownEncodingIsRefused) {
  EXPECT_THROW(readDocument("<?xml version=\"1.0\" encoding=\"x-none\"?><plist><true/></plist>"),
               PlatformException);
}

TEST(XMLPropertyListTest, NestingUpToTheLimitIsReadAndBeyondItRefused) {
  const auto nested = [](int depth, const std::string& inner) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<array>";
    text += inner;
    for (int i = 0; i < depth; ++i) text += "</array>";
    return text;
  };
  EXPECT_NO_THROW(read(nested(kMaximumPropertyListDepth, "<true/>")));
  EXPECT_THROW(read(nested(kMaximumPropertyListDepth + 1, "")), PlatformException);
  EXPECT_THROW(read(nested(kMaximumPropertyListDepth, "<array/>")), PlatformException);
}

TEST(XMLPropertyListTest, WhatIsReadFromTheDeepestListCanBeWrittenAgain) {
  Value value = Value::Array{true, "a"};
  for (int depth = 1; depth < kMaximumPropertyListDepth; ++depth) {
    Value outer = Value::Array();
    outer.getIf<Value::Array>()->push_back(std::move(value));
    value = std::move(outer);
  }
  EXPECT_EQ(xmlRoundTrip(value), value);
  EXPECT_THROW(XMLDataWithPropertyList(Value::Array{value}), PlatformException);
}

TEST(XMLPropertyListTest, TheComplaintNamesTheLine) {
  try {
    read("\n<integer>x</integer>");
    FAIL();
  } catch (const PlatformException& exception) {
    EXPECT_EQ(exception.name(), kInvalidArgumentException);
    EXPECT_NE(exception.reason().find("line 3"), std::string::npos) << exception.reason();
  }
}

TEST(XMLPropertyListTest, EveryKindSurvivesWritingAndReading) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  Data bytes;
  for (int i = 0; i < 300; ++i) bytes.push_back(static_cast<std::uint8_t>(i));
  for (const Value& value :
       {Value(true),
        Value(false),
        Value(0),
        Value(-1),
        Value(INT64_MIN),
        Value(INT64_MAX),
        Value(UINT64_MAX),
        Value(0.1),
        Value(1e300),
        Value(5e-324),
        Value(-0.0),
        Value(nan),
        Value(infinity),
        Value(-infinity),
        Value(3.0),
        Value(Date{0}),
        Value(Date{-86401}),
        Value(Date{1e9}),
        Value(Date{-63113904000}),
        Value(Date{252423993599}),
        Value(""),
        Value(" \t\n\r a"),
        Value("<&>\"'"),
        Value("]]>"),
        Value("\xF0\x9F\x98\x80\xC3\xA9"),
        Value(Data()),
        Value(Data{1}),
        Value(Data{1, 2}),
        Value(bytes),
        Value(Uid{0}),
        Value(Uid{UINT64_MAX}),
        Value(Value::Array()),
        Value(Value::Dictionary()),
        Value(Value::Array{Value::Array{}, Value::Dictionary{{"a", Value::Array{Uid{1}}}}}),
        Value(Value::Dictionary{{"", 1}, {"<k>", Value::Dictionary{{"\r\n", bytes}}}})}) {
    EXPECT_EQ(xmlRoundTrip(value), value);
  }
}

TEST(XMLPropertyListTest, DatesAreRoundedDownToSeconds) {
  EXPECT_EQ(xmlRoundTrip(Date{1.75}), Value(Date{1}));
  EXPECT_EQ(xmlRoundTrip(Date{-0.25}), Value(Date{-1}));
}

TEST(XMLPropertyListTest, DatesOutsideTheCalendarAreNotWritten) {
  for (const double seconds : {1e300, -1e300, 1e12, -63113904001.0, 252423993600.0,
                               std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_THROW(XMLDataWithPropertyList(Date{seconds}), PlatformException) << seconds;
  }
}

TEST(XMLPropertyListTest, CharactersThatXMLCannotHoldAreNotWritten) {
  for (const std::string& text : {std::string("\0", 1), std::string("a\x01"), std::string("\x1F"),
                                  std::string("\xEF\xBF\xBE"), std::string("\xEF\xBF\xBF")}) {
    EXPECT_THROW(XMLDataWithPropertyList(text), PlatformException);
    EXPECT_THROW(XMLDataWithPropertyList(Value::Dictionary{{text, 1}}), PlatformException);
  }
}

TEST(XMLPropertyListTest, TextThatIsNoUtf8IsWrittenWithReplacementCharacters) {
  EXPECT_EQ(xmlRoundTrip("a\xFFz"), Value("a\xEF\xBF\xBDz"));
  EXPECT_EQ(xmlRoundTrip("a\xEF"), Value("a\xEF\xBF\xBD"));
}

TEST(XMLPropertyListTest, WhatNoPropertyListHoldsIsNotWritten) {
  for (const Value& value :
       {Value(), Value(Url("file:///a")), Value(Uuid{}), Value(DataPtr()),
        Value(Value::Array{nullptr}), Value(Value::Dictionary{{"a\xFF", 1}})}) {
    EXPECT_THROW(XMLDataWithPropertyList(value), PlatformException);
  }
}

}  // namespace
}  // namespace tervano
