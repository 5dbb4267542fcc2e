#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/companion/tervano_program.h"
#include "tests/support/user_locale.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// The real program in the locale of a user.
class LanguageTest : public testing::Test {
 protected:
  void speak(const std::string& locale) { useLocale(home_.home(), locale); }
  std::string errorsOf(std::vector<std::string> words) const {
    const auto outcome = home_.tervano(std::move(words));
    EXPECT_NE(outcome.status, 0);
    return outcome.errors;
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(LanguageTest, ErrorsAreInTheUsersLanguage) {
  EXPECT_EQ(errorsOf({"watch", "--no"}),
            "tervano: There is no option --no here; a path that begins with a hyphen goes behind "
            "\"--\".\n");
  speak("de_DE");
  EXPECT_EQ(errorsOf({"watch", "--no"}),
            "tervano: Die Option --no gibt es hier nicht; ein Pfad, der mit einem Bindestrich "
            "beginnt, steht hinter „--“.\n");
  speak("fr_FR");
  EXPECT_EQ(errorsOf({"watch", "--no"}),
            "tervano: L’option --no n’existe pas ici ; un chemin qui commence par un tiret se "
            "place après « -- ».\n");
}

TEST_F(LanguageTest, ASentenceWithinASentenceIsTranslatedToo) {
  speak("de_DE");
  EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: Der Name einer Einstellung fehlt.\n");
  speak("fr_FR");
  EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: Le nom d’une préférence manque.\n");
}

TEST_F(LanguageTest, WithTheLocaleCItIsEnglishWhateverTheLanguage) {
  speak("de_DE");
  home_.home().setVariable("LANG", "C");
  home_.home().setVariable("LANGUAGE", "de");
  EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: The name of a preference is missing.\n");
}

TEST_F(LanguageTest, WithALocaleThatIsNotThereItIsEnglish) {
  speak("de_DE");
  for (const std::string locale : {"it_IT.UTF-8", "nonsense", "../../../de_DE.UTF-8"}) {
    home_.home().setVariable("LANG", locale);
    EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: The name of a preference is missing.\n")
        << locale;
  }
}

TEST_F(LanguageTest, TheLanguageOfMessagesCountsAndNotThatOfNumbers) {
  speak("fr_FR");
  home_.home().setVariable("LC_MESSAGES", "de_DE.UTF-8");
  EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: Der Name einer Einstellung fehlt.\n");
}

TEST_F(LanguageTest, TheFirstLanguageOfTheListThatThereIsCounts) {
  speak("fr_FR");
  home_.home().setVariable("LANGUAGE", "it:de:fr");
  EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: Der Name einer Einstellung fehlt.\n");
  home_.home().setVariable("LANGUAGE", "en_GB:en:de");
  EXPECT_EQ(errorsOf({"prefs", "get"}), "tervano: The name of a preference is missing.\n");
}

TEST_F(LanguageTest, ACatalogueThatIsDamagedLeavesItEnglish) {
  speak("de_DE");
  const std::string prefix = home_.folder("prefix");
  fs::create_directories(prefix + "/share/tervano");
  fs::create_directories(prefix + "/bin");
  fs::copy_file(TERVANO_PROGRAM, prefix + "/bin/tervano");
  writeCatalogue(prefix + "/share/locale", "de",
                 "msgid \"{1} is missing.\"\nmsgstr \"{7} fehlt {1} %s%n.\"\n");
  ProgramStart start;
  start.path = prefix + "/bin/tervano";
  start.arguments = {"prefs", "get"};
  EXPECT_EQ(runProgram(start).errors, "tervano: The name of a preference is missing.\n");
  home_.file("prefix/share/locale/de/LC_MESSAGES/tervano.mo", std::string("\xde\x12\x04\x95", 4));
  EXPECT_EQ(runProgram(start).errors, "tervano: The name of a preference is missing.\n");
}

TEST_F(LanguageTest, HelpIsInTheUsersLanguageAndFitsATerminal) {
  speak("de_DE");
  EXPECT_THAT(home_.succeed({"help", "prefs"}),
              AllOf(HasSubstr("Aufruf: tervano prefs [--json]\n        tervano prefs get NAME\n"),
                    HasSubstr("\nzeigt und setzt Einstellungen.\n"),
                    HasSubstr("\nRückgabewert:\n  0 bei Erfolg")));
  EXPECT_THAT(home_.succeed({"help"}),
              HasSubstr("\n  prefs       zeigt und setzt Einstellungen\n"));
  speak("fr_FR");
  EXPECT_THAT(home_.succeed({"help", "prefs"}), HasSubstr("affiche et modifie les préférences.\n"));
}

TEST_F(LanguageTest, AListIsShownInTheUsersLanguageAndItsJsonIsNot) {
  // It notes on standard error how two types work.
  std::string uid =
      home_.tervano({"add", "move", "--types", "public.image,public.data", "--to", home_.path()})
          .output;
  uid.pop_back();
  home_.succeed({"disable", uid});
  const auto english = home_.json({"list", "--json"});
  const auto explained = home_.json({"explain", "--json", "/etc/passwd"});
  speak("de_DE");
  EXPECT_THAT(home_.succeed({"list"}),
              HasSubstr(", ausgeschaltet, jedes Objekt ist public.image und public.data]"));
  EXPECT_EQ(home_.json({"list", "--json"}), english);
  EXPECT_THAT(home_.succeed({"explain", "/etc/passwd"}),
              AllOf(testing::StartsWith("verborgen "), HasSubstr(": sie ist ausgeschaltet")));
  EXPECT_EQ(home_.json({"explain", "--json", "/etc/passwd"}), explained);
  speak("fr_FR");
  EXPECT_THAT(home_.succeed({"list"}),
              HasSubstr(", désactivée, chaque élément est public.image et public.data]"));
}

TEST_F(LanguageTest, FindingsAreInTheUsersLanguageAndTheirJsonIsNot) {
  const auto english = home_.tervano({"doctor", "--json"}).output;
  EXPECT_THAT(english, HasSubstr("There is none: neither DBUS_SESSION_BUS_ADDRESS"));
  speak("de_DE");
  const auto outcome = home_.tervano({"doctor"});
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("\nfehlt    Sitzungsbus: Es gibt keinen: Weder "),
                                    HasSubstr(" Sich an einer Desktop-Sitzung anmelden oder"),
                                    HasSubstr("gemeinsamer Container")));
  EXPECT_THAT(outcome.errors, HasSubstr("gebraucht"));
  EXPECT_EQ(home_.tervano({"doctor", "--json"}).output, english);
  speak("fr_FR");
  EXPECT_THAT(home_.tervano({"doctor"}).output,
              HasSubstr("\nabsent   bus de session : Il n’y en a pas : ni "));
}

TEST_F(LanguageTest, ErrorsOfTheSystemAreInTheLanguageOfTheLog) {
  speak("de_DE");
  // The C library has its own catalogues, which would make logs bilingual.
  EXPECT_THAT(errorsOf({"import", home_.path() + "/none"}),
              AllOf(HasSubstr("No such file or directory"), Not(HasSubstr("Datei oder"))));
}

TEST_F(LanguageTest, ManualPagesAndCompletionStayEnglish) {
  const std::string page = home_.succeed({"help", "--man", "prefs"});
  const std::string overview = home_.succeed({"help", "--man"});
  const std::string completion = home_.succeed({"completion", "fish"});
  EXPECT_THAT(page, HasSubstr("show and set preferences"));
  speak("de_DE");
  EXPECT_EQ(home_.succeed({"help", "--man", "prefs"}), page);
  EXPECT_EQ(home_.succeed({"help", "--man"}), overview);
  EXPECT_EQ(home_.succeed({"completion", "fish"}), completion);
}

}  // namespace tervano::test
