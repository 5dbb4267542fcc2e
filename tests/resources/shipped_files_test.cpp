#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "archive/property_list.h"
#include "platform/linux/installed_bundle.h"
#include "tests/resources/default_script_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string kTemplates = TERVANO_RESOURCES "/Templates/";

std::string python(const std::string& program, const std::vector<std::string>& words) {
  ProgramStart start;
  start.path = "/usr/bin/python3";
  start.arguments = {"-c", program};
  start.arguments.insert(start.arguments.end(), words.begin(), words.end());
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  return outcome.output;
}

// --- BundledDescriptions

std::map<std::string, std::string> descriptions() {
  const auto file = contentsOf(TERVANO_RESOURCES "/BundledDescriptions.plist");
  const auto list =
      propertyListWithData({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()});
  std::map<std::string, std::string> all;
  const auto* entries = list.getIf<Value::Dictionary>();
  if (entries == nullptr) return all;
  for (const auto& [key, value] : *entries) {
    const auto* text = value.getIf<std::string>();
    all[key] = text == nullptr ? "" : *text;
  }
  return all;
}

TEST(BundledDescriptionsTest, DescribeExactlyTheScripts) {
  std::vector<std::string> names;
  for (const auto& [name, text] : descriptions()) names.push_back(name);
  EXPECT_EQ(names, scriptTitles());
}

TEST(BundledDescriptionsTest, AreOneLineEach) {
  for (const auto& [name, text] : descriptions()) {
    EXPECT_THAT(text, MatchesRegex("[A-Z][^\n]*[^.\n ]")) << name;
    EXPECT_LE(text.size(), 90U) << name;
  }
}

TEST(BundledDescriptionsTest, AreReadAlikeByAnotherReader) {
  const auto theirs = python(
      "import plistlib, sys\n"
      "entries = plistlib.load(open(sys.argv[1], 'rb'), fmt=plistlib.FMT_XML)\n"
      "for key in sorted(entries): print(key + '=' + entries[key])\n",
      {TERVANO_RESOURCES "/BundledDescriptions.plist"});
  std::string ours;
  for (const auto& [name, text] : descriptions())
    ours.append(name).append("=").append(text) += "\n";
  EXPECT_EQ(ours, theirs);
}

// --- What the program finds

TEST(ShippedFilesTest, TheProgramFindsScriptsImagesAndDescriptionsByName) {
  const InstalledBundle bundle(std::string(TERVANO_PROGRAM));
  EXPECT_TRUE(bundle.pathForResource("BundledDescriptions", "plist").has_value());
  for (const auto& title : scriptTitles()) {
    EXPECT_TRUE(bundle.pathForResource(title, "sh", "Default Scripts").has_value()) << title;
    EXPECT_TRUE(bundle.pathForImageNamed(title).has_value()) << title;
  }
}

TEST(ShippedFilesTest, EachScriptsImageIsADrawingOfSixteenPoints) {
  for (const auto& title : scriptTitles()) {
    const std::string path = TERVANO_RESOURCES "/icons/" + title + ".svg";
    EXPECT_THAT(contentsOf(path), HasSubstr("width=\"16\" height=\"16\" viewBox=\"0 0 16 16\""));
    ProgramStart start;
    start.path = "/usr/bin/rsvg-convert";
    start.arguments = {path};
    const auto outcome = runProgram(start);
    EXPECT_EQ(outcome.status, 0) << title << outcome.errors;
    EXPECT_EQ(outcome.output.substr(1, 3), "PNG") << title;
  }
}

// --- Templates

std::vector<std::string> templates() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(kTemplates)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(TemplatesTest, AreThoseThatAreOffered) {
  EXPECT_THAT(
      templates(),
      ElementsAre("Comma Separated Values.csv", "Document.odt", "Excel Workbook.xlsx",
                  "Markdown Document.md", "Presentation.odp", "Python Script.py", "Shell Script.sh",
                  "Spreadsheet.ods", "Text File.txt", "Web Page.html", "Word Document.docx"));
}

TEST(TemplatesTest, OnlyTheScriptsAreExecutable) {
  for (const auto& name : templates()) {
    EXPECT_EQ(access((kTemplates + name).c_str(), X_OK) == 0,
              name == "Python Script.py" || name == "Shell Script.sh")
        << name;
  }
}

TEST(TemplatesTest, TheScriptsRun) {
  for (const char* name : {"Python Script.py", "Shell Script.sh"}) {
    ProgramStart start;
    start.path = kTemplates + name;
    const auto outcome = runProgram(start);
    EXPECT_EQ(outcome.status, 0) << name;
    EXPECT_EQ(outcome.output + outcome.errors, "") << name;
  }
}

TEST(TemplatesTest, TheDocumentsAreWellFormedOpenDocument) {
  const auto kinds = python(
      "import sys, zipfile, xml.dom.minidom as dom\n"
      "for path in sys.argv[1:]:\n"
      "  with zipfile.ZipFile(path) as file:\n"
      "    assert file.testzip() is None\n"
      "    first = file.infolist()[0]\n"
      "    assert first.filename == 'mimetype' and first.compress_type == zipfile.ZIP_STORED\n"
      "    assert first.header_offset == 0 and not first.extra\n"
      "    kind = file.read('mimetype').decode('ascii')\n"
      "    manifest = dom.parseString(file.read('META-INF/manifest.xml'))\n"
      "    entries = {e.getAttribute('manifest:full-path'): e.getAttribute('manifest:media-type')\n"
      "               for e in manifest.getElementsByTagName('manifest:file-entry')}\n"
      "    assert entries.pop('/') == kind\n"
      "    assert set(entries) == set(file.namelist()) - {'mimetype', 'META-INF/manifest.xml'}\n"
      "    for name in entries: dom.parseString(file.read(name))\n"
      "    body = "
      "dom.parseString(file.read('content.xml')).getElementsByTagName('office:body')[0]\n"
      "    print(kind, [n.tagName for n in body.childNodes if n.nodeType == n.ELEMENT_NODE][0])\n",
      {kTemplates + "Document.odt", kTemplates + "Spreadsheet.ods",
       kTemplates + "Presentation.odp"});
  EXPECT_EQ(kinds,
            "application/vnd.oasis.opendocument.text office:text\n"
            "application/vnd.oasis.opendocument.spreadsheet office:spreadsheet\n"
            "application/vnd.oasis.opendocument.presentation office:presentation\n");
}

TEST(TemplatesTest, TheDocumentsAreWellFormedOpenXml) {
  const auto kinds = python(
      "import posixpath, sys, zipfile, xml.dom.minidom as dom\n"
      "for path in sys.argv[1:]:\n"
      "  with zipfile.ZipFile(path) as file:\n"
      "    assert file.testzip() is None\n"
      "    names = set(file.namelist())\n"
      "    for name in names: dom.parseString(file.read(name))\n"
      "    types = dom.parseString(file.read('[Content_Types].xml'))\n"
      "    parts = {e.getAttribute('PartName')[1:] for e in "
      "types.getElementsByTagName('Override')}\n"
      "    assert parts <= names, parts - names\n"
      "    reached = set()\n"
      "    for name in sorted(n for n in names if n.endswith('.rels')):\n"
      "      base = posixpath.dirname(posixpath.dirname(name))\n"
      "      for r in dom.parseString(file.read(name)).getElementsByTagName('Relationship'):\n"
      "        reached.add(posixpath.normpath(posixpath.join(base, r.getAttribute('Target'))))\n"
      "    assert reached == parts, reached ^ parts\n"
      "    print(*sorted(parts))\n",
      {kTemplates + "Word Document.docx", kTemplates + "Excel Workbook.xlsx"});
  EXPECT_EQ(kinds, "word/document.xml\nxl/styles.xml xl/workbook.xml xl/worksheets/sheet1.xml\n");
}

TEST(TemplatesTest, ThePageIsWellFormed) {
  python(
      "import html.parser, sys\n"
      "open_tags = []\n"
      "class Reader(html.parser.HTMLParser):\n"
      "  def handle_starttag(self, tag, attributes):\n"
      "    if tag != 'meta': open_tags.append(tag)\n"
      "  def handle_endtag(self, tag): assert open_tags.pop() == tag\n"
      "text = open(sys.argv[1], encoding='utf-8').read()\n"
      "assert text.startswith('<!DOCTYPE html>')\n"
      "Reader().feed(text)\n"
      "assert not open_tags\n",
      {kTemplates + "Web Page.html"});
}

TEST(TemplatesTest, TheTableHasOneRow) {
  EXPECT_EQ(python("import csv, sys\n"
                   "print(list(csv.reader(open(sys.argv[1], newline=''))))\n",
                   {kTemplates + "Comma Separated Values.csv"}),
            "[['Name', 'Value']]\n");
}

}  // namespace
}  // namespace tervano::test
