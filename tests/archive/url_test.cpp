#include "archive/url.h"

#include <gtest/gtest.h>

#include <string>

namespace tervano {
namespace {

TEST(UrlTest, AFileURLEscapesEverythingOutsideTheUnreservedSetAndSlash) {
  EXPECT_EQ(Url::fileURLWithPath("/tmp/a b~c-d_e.f%#?").absoluteString(),
            "file:///tmp/a%20b~c-d_e.f%25%23%3F");
}

TEST(UrlTest, EveryByteOfAPathSurvives) {
  std::string path = "/";
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/') path.push_back(static_cast<char>(byte));
  }
  EXPECT_EQ(Url::fileURLWithPath(path).path(), path);
}

TEST(UrlTest, AFolderEndsInOneSlash) {
  EXPECT_EQ(Url::fileURLWithPath("/a", true).absoluteString(), "file:///a/");
  EXPECT_EQ(Url::fileURLWithPath("/a/", true).absoluteString(), "file:///a/");
  EXPECT_EQ(Url::fileURLWithPath("/", true).absoluteString(), "file:///");
}

TEST(UrlTest, ThePathOfAFolderHasNoTrailingSlash) {
  EXPECT_EQ(Url("file:///a/b/").path(), "/a/b");
  EXPECT_EQ(Url("file:///a/b//").path(), "/a/b");
}

TEST(UrlTest, SlashesAtTheEndGoButForTheLastOne) {
  EXPECT_EQ(withoutTrailingSlashes("/a/b//"), "/a/b");
  EXPECT_EQ(withoutTrailingSlashes("a"), "a");
  EXPECT_EQ(withoutTrailingSlashes("///"), "/");
  EXPECT_EQ(withoutTrailingSlashes(""), "");
}

TEST(UrlTest, ThePathOfTheRootIsASlash) {
  EXPECT_EQ(Url("file:///").path(), "/");
}

TEST(UrlTest, LocalhostIsThisMachine) {
  EXPECT_EQ(Url("file://localhost/a%20b").path(), "/a b");
  EXPECT_EQ(Url("file://LocalHost/a").path(), "/a");
}

TEST(UrlTest, AFileURLWithoutAuthorityIsOfThisMachine) {
  EXPECT_EQ(Url("file:/a").path(), "/a");
}

TEST(UrlTest, AnotherHostHasNoPathHere) {
  EXPECT_TRUE(Url("file://server/share/a").isFileURL());
  EXPECT_EQ(Url("file://server/share/a").path(), "");
}

TEST(UrlTest, ASchemeIsComparedWithoutCase) {
  EXPECT_TRUE(Url("FILE:///a").isFileURL());
  EXPECT_EQ(Url("FILE:///a").path(), "/a");
}

TEST(UrlTest, WhatIsNoFileURLHasNoPath) {
  for (const char* text : {"", "/a", "http://host/a", "file", "files:///a", "file:a", "%"}) {
    EXPECT_EQ(Url(text).path(), "") << text;
  }
  EXPECT_FALSE(Url("http://host/a").isFileURL());
  EXPECT_FALSE(Url("files:///a").isFileURL());
}

TEST(UrlTest, ABrokenEscapeHasNoPath) {
  for (const char* text : {"file:///a%", "file:///a%4", "file:///a%zz", "file:///%%41"}) {
    EXPECT_EQ(Url(text).path(), "") << text;
  }
}

TEST(UrlTest, AnEscapedNulHasNoPath) {
  EXPECT_EQ(Url("file:///a%00b").path(), "");
}

TEST(UrlTest, QueryAndFragmentAreNotPartOfThePath) {
  EXPECT_EQ(Url("file:///a?b#c").path(), "/a");
  EXPECT_EQ(Url("file:///a#c?b").path(), "/a");
}

TEST(UrlTest, LastPathComponentIsUnescaped) {
  EXPECT_EQ(Url("file:///a/b%20c/").lastPathComponent(), "b c");
  EXPECT_EQ(Url("http://host/a/b?q=/x").lastPathComponent(), "b");
  EXPECT_EQ(Url("file:///").lastPathComponent(), "/");
}

TEST(UrlTest, AppendingAComponentEscapesIt) {
  EXPECT_EQ(Url("file:///a").URLByAppendingPathComponent("b c").absoluteString(),
            "file:///a/b%20c");
  EXPECT_EQ(Url("file:///a/").URLByAppendingPathComponent("b/c").absoluteString(), "file:///a/b/c");
}

TEST(UrlTest, AppendingAComponentStaysInFrontOfTheQuery) {
  EXPECT_EQ(Url("http://h/a?q#f").URLByAppendingPathComponent("b").absoluteString(),
            "http://h/a/b?q#f");
}

// The examples of RFC 3986, sections 5.4.1 and 5.4.2.
TEST(UrlTest, ReferencesResolveAsInTheExamplesOfRFC3986) {
  const Url base("http://a/b/c/d;p?q");
  const std::pair<const char*, const char*> cases[] = {
      {"g:h", "g:h"},
      {"g", "http://a/b/c/g"},
      {"./g", "http://a/b/c/g"},
      {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"},
      {"g#s", "http://a/b/c/g#s"},
      {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"},
      {"g;x", "http://a/b/c/g;x"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"", "http://a/b/c/d;p?q"},
      {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"},
      {"..", "http://a/b/"},
      {"../", "http://a/b/"},
      {"../g", "http://a/b/g"},
      {"../..", "http://a/"},
      {"../../", "http://a/"},
      {"../../g", "http://a/g"},
      {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"},
      {"/./g", "http://a/g"},
      {"/../g", "http://a/g"},
      {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"},
      {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"},
      {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"},
      {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"g?y/../x", "http://a/b/c/g?y/../x"},
      {"g#s/./x", "http://a/b/c/g#s/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"},
      {"http:g", "http:g"},
  };
  for (const auto& [reference, expected] : cases) {
    EXPECT_EQ(Url::URLWithString(reference, base).absoluteString(), expected) << reference;
  }
}

TEST(UrlTest, AReferenceToAFolderStaysInsideIt) {
  EXPECT_EQ(Url::URLWithString("b%20c/", Url("file:///a/")).absoluteString(), "file:///a/b%20c/");
}

TEST(PathTest, LastPathComponent) {
  EXPECT_EQ(lastPathComponent("/a/b/"), "b");
  EXPECT_EQ(lastPathComponent("/a/b"), "b");
  EXPECT_EQ(lastPathComponent("b"), "b");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent("//"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

TEST(PathTest, DeletingLastPathComponent) {
  EXPECT_EQ(deletingLastPathComponent("/a/b"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/a/b/"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/a//b"), "/a");
  EXPECT_EQ(deletingLastPathComponent("/a"), "/");
  EXPECT_EQ(deletingLastPathComponent("/"), "/");
  EXPECT_EQ(deletingLastPathComponent("a/b"), "a");
  EXPECT_EQ(deletingLastPathComponent("a"), "");
  EXPECT_EQ(deletingLastPathComponent(""), "");
}

TEST(PathTest, AppendingPathComponent) {
  EXPECT_EQ(appendingPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/a/", "b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/a", "/b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendingPathComponent("", "b"), "b");
  EXPECT_EQ(appendingPathComponent("/a", ""), "/a");
  EXPECT_EQ(appendingPathComponent("/a", "b/c"), "/a/b/c");
}

TEST(PathTest, PathExtension) {
  EXPECT_EQ(pathExtension("/a.d/b.txt"), "txt");
  EXPECT_EQ(pathExtension("b.tar.gz"), "gz");
  EXPECT_EQ(pathExtension("/a.d/b"), "");
  EXPECT_EQ(pathExtension(".profile"), "");
  EXPECT_EQ(pathExtension(".profile.bak"), "bak");
  EXPECT_EQ(pathExtension("b."), "");
  EXPECT_EQ(pathExtension("b.txt/"), "txt");
  EXPECT_EQ(pathExtension(""), "");
  EXPECT_EQ(pathExtension(".."), "");
}

}  // namespace
}  // namespace tervano
