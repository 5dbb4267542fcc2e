#include "translation/translation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/support/temporary_home.h"
#include "tests/support/user_locale.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

// A catalogue made for the test, in German.
class TranslationTest : public testing::Test {
 protected:
  ~TranslationTest() override { std::setlocale(LC_ALL, "C"); }

  // A folder of its own for each, for what was read once is kept.
  void useCatalogue(const std::string& entries) {
    const std::string folder = home_.path() + "/locale" + std::to_string(++catalogues_);
    writeCatalogue(folder, "de", entries);
    useFolder(folder);
  }
  void useFolder(const std::string& folder) {
    useLocale(home_, "de_DE");
    useLanguageOfUser(folder);
  }

  TemporaryHome home_;
  int catalogues_ = 0;
};

}  // namespace

TEST_F(TranslationTest, ASentenceIsTranslatedAndKeepsItsEnglish) {
  useCatalogue("msgid \"The file\"\nmsgstr \"Die Datei mit Größe\"\n");
  const Sentence sentence = tr("The file");
  EXPECT_EQ(sentence.shown(), "Die Datei mit Größe");
  EXPECT_EQ(sentence.english(), "The file");
}

TEST_F(TranslationTest, ATranslationMayReorderTheArguments) {
  useCatalogue("msgid \"{1} of {2}\"\nmsgstr \"{2}: {1}\"\n");
  const Sentence sentence = tr("{1} of {2}", "a", 7U);
  EXPECT_EQ(sentence.shown(), "7: a");
  EXPECT_EQ(sentence.english(), "a of 7");
}

TEST_F(TranslationTest, AnArgumentThatIsASentenceHasBothLanguages) {
  useCatalogue(
      "msgid \"The file\"\nmsgstr \"Die Datei\"\n\nmsgid \"{1} is missing.\"\nmsgstr \"{1} "
      "fehlt.\"\n");
  const Sentence sentence = tr("{1} is missing.", tr("The file"));
  EXPECT_EQ(sentence.shown(), "Die Datei fehlt.");
  EXPECT_EQ(sentence.english(), "The file is missing.");
}

TEST_F(TranslationTest, AnArgumentThatLooksLikeAPlaceStaysAsItIs) {
  useCatalogue("msgid \"{1} of {2}\"\nmsgstr \"{2}: {1}\"\n");
  EXPECT_EQ(tr("{1} of {2}", "{2}", "{1}{9}").shown(), "{1}{9}: {2}");
}

TEST_F(TranslationTest, ACountChoosesTheForm) {
  useCatalogue(
      "msgid \"one file\"\nmsgid_plural \"{1} files\"\nmsgstr[0] \"eine Datei\"\n"
      "msgstr[1] \"{1} Dateien\"\n");
  EXPECT_EQ(trn("one file", "{1} files", 1U).shown(), "eine Datei");
  EXPECT_EQ(trn("one file", "{1} files", 0U).shown(), "0 Dateien");
  EXPECT_EQ(trn("one file", "{1} files", 1234567U).shown(), "1234567 Dateien");
  EXPECT_EQ(trn("one file", "{1} files", 1U).english(), "one file");
}

TEST_F(TranslationTest, MarkedTextIsTranslatedWhenItIsShown) {
  constexpr const char* kText = trMark("shown later");
  EXPECT_EQ(translated(kText).shown(), "shown later");
  useCatalogue("msgid \"shown later\"\nmsgstr \"später gezeigt\"\n");
  EXPECT_EQ(translated(kText).shown(), "später gezeigt");
}

TEST_F(TranslationTest, EmptyTextIsNotTheHeaderOfTheCatalogue) {
  useCatalogue("");
  EXPECT_EQ(translated("").shown(), "");
  EXPECT_EQ(tr("").shown(), "");
}

TEST_F(TranslationTest, WithoutATranslationItIsEnglish) {
  useCatalogue("msgid \"The file\"\nmsgstr \"Die Datei\"\n");
  EXPECT_EQ(tr("Not in the catalogue: {1}.", "a").shown(), "Not in the catalogue: a.");
  EXPECT_EQ(trn("one file", "{1} files", 2U).shown(), "2 files");
}

TEST_F(TranslationTest, ATranslationThatLacksAnArgumentIsNotTaken) {
  useCatalogue("msgid \"{1} of {2}\"\nmsgstr \"nur {1}\"\n");
  EXPECT_EQ(tr("{1} of {2}", "a", "b").shown(), "a of b");
}

TEST_F(TranslationTest, ATranslationWithAPlaceTooManyIsNotTaken) {
  for (const std::string place : {"{0}", "{2}", "{9}"}) {
    useCatalogue("msgid \"in {1}\"\nmsgstr \"in {1} " + place + "\"\n");
    EXPECT_EQ(tr("in {1}", "a").shown(), "in a") << place;
  }
}

TEST_F(TranslationTest, BracesThatAreNoPlaceStay) {
  useCatalogue("msgid \"in {1}\"\nmsgstr \"{ {a} {10} %s %n {1} {\"\n");
  EXPECT_EQ(tr("in {1}", "a").shown(), "{ {a} {10} %s %n a {");
}

TEST_F(TranslationTest, AFileThatIsNoCatalogueChangesNothing) {
  for (const std::string& content :
       {std::string(), std::string("no catalogue"), std::string("\xde\x12\x04\x95\xff\xff\xff\xff"),
        std::string("\xde\x12\x04\x95\0\0\0\0\xff\xff\xff\x7f\x1c\0\0\0\xff\xff\xff\x7f", 20)}) {
    const std::string folder = home_.path() + "/bad" + std::to_string(content.size());
    fs::create_directories(folder + "/de/LC_MESSAGES");
    std::ofstream(folder + "/de/LC_MESSAGES/tervano.mo", std::ios::binary) << content;
    useFolder(folder);
    EXPECT_EQ(tr("in {1}", "a").shown(), "in a");
  }
}

TEST_F(TranslationTest, OnlyMessagesAndCharactersFollowTheLocale) {
  useCatalogue("");
  EXPECT_STREQ(std::setlocale(LC_MESSAGES, nullptr), "de_DE.UTF-8");
  EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "de_DE.UTF-8");
  for (const int category : {LC_NUMERIC, LC_TIME, LC_COLLATE, LC_MONETARY}) {
    EXPECT_STREQ(std::setlocale(category, nullptr), "C");
  }
}

TEST_F(TranslationTest, CataloguesAreUtf8WhateverTheCharactersOfTheLocale) {
  home_.setVariable("LC_CTYPE", "C");
  useCatalogue("msgid \"The file\"\nmsgstr \"Größe\"\n");
  EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  EXPECT_EQ(tr("The file").shown(), "Größe");
}

TEST_F(TranslationTest, ASentenceGrowsInBothLanguages) {
  Sentence sentence("a", "b");
  sentence += Sentence("c", "d");
  sentence += "e";
  EXPECT_EQ(sentence, Sentence("ace", "bde"));
  std::ostringstream out;
  out << sentence;
  EXPECT_EQ(out.str(), "bde");
}

TEST_F(TranslationTest, ManyThreadsTranslateAtOnce) {
  useCatalogue("msgid \"in {1}\"\nmsgstr \"im {1}\"\n");
  std::vector<std::thread> threads;
  std::vector<int> good(4);
  for (std::size_t index = 0; index < good.size(); ++index) {
    threads.emplace_back([&good, index] {
      for (int round = 0; round < 2000; ++round) {
        good[index] += tr("in {1}", round).shown() == "im " + std::to_string(round) ? 1 : 0;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(good, testing::Each(2000));
}

}  // namespace tervano::test
