#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "companion/command.h"
#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"
#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/user_locale.h"
#include "tests/support/wait.h"

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

TEST_F(LanguageTest, NoHelpOfAnyCommandIsWiderThanATerminalOrLeftInEnglish) {
  const auto columnsOf = [](const std::string& line) {
    return std::count_if(line.begin(), line.end(), [](char byte) { return (byte & 0xC0) != 0x80; });
  };
  for (const std::string locale : {"de_DE", "fr_FR"}) {
    speak(locale);
    for (const auto& command : allCommands()) {
      const std::string text = home_.succeed({"help", command.help.name});
      EXPECT_THAT(text, Not(HasSubstr(command.help.summary))) << locale;
      for (const auto& paragraph : command.help.paragraphs) {
        EXPECT_THAT(text, Not(HasSubstr(paragraph.substr(0, 25)))) << locale;
      }
      std::istringstream lines(text);
      for (std::string line; std::getline(lines, line);) EXPECT_LE(columnsOf(line), 80) << line;
    }
  }
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

TEST_F(LanguageTest, TheNotificationOfAMoveIsEnglishInEveryLanguage) {
  const ScopedPlatform platform;
  const PrivateBus bus;
  constexpr char kNotifications[] = "org.freedesktop.Notifications";
  constexpr char kXML[] = R"(<node><interface name="org.freedesktop.Notifications">
    <method name="GetCapabilities"><arg type="as" direction="out"/></method>
    <method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/>
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="as" direction="in"/><arg type="a{sv}" direction="in"/>
      <arg type="i" direction="in"/><arg type="u" direction="out"/></method>
    </interface></node>)";
  const FakeBusService daemon(bus.address(), kNotifications, "/org/freedesktop/Notifications",
                              kNotifications, kXML, [](const auto& call) -> GVariant* {
                                if (call.method == "Notify") return g_variant_new("(u)", 1);
                                const char* const capabilities[] = {"body", "actions", nullptr};
                                return g_variant_new("(^as)", capabilities);
                              });
  speak("de_DE");
  const std::string target = home_.folder("Ziel");
  const std::string uid = home_.succeed({"add", "move", "--to", target});
  auto moving =
      startProgram(TERVANO_PROGRAM, {"run", uid, home_.file("a.txt"), home_.path() + "/none"});
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 1; }, 30));
  EXPECT_TRUE(waitUntil([&] { return moving.waitForExit(0).has_value(); }, 30));
  auto whole = startProgram(TERVANO_PROGRAM, {"run", uid, home_.file("b.txt")});
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 2; }, 30));
  EXPECT_TRUE(waitUntil([&] { return whole.waitForExit(0).has_value(); }, 30));
  EXPECT_THAT(daemon.callsOf("Notify")[0].arguments,
              HasSubstr("An error occurred while moving these files."));
  EXPECT_THAT(daemon.callsOf("Notify")[1].arguments,
              AllOf(HasSubstr("Finished moving "), HasSubstr("'Show'")));
}

TEST_F(LanguageTest, TheWindowProgramSpeaksTheUsersLanguage) {
  speak("fr_FR");
  ProgramStart start;
  start.path = TERVANO_BUILD "/libexec/tervano/tervano-ask";
  start.arguments = {"--nonsense"};
  EXPECT_EQ(runProgram(start).errors, "tervano-ask: La seule option est --password.\n");
}

TEST_F(LanguageTest, AQuestionOnATerminalIsAnsweredInTheUsersLanguage) {
  speak("de_DE");
  const std::string uid = home_.succeed({"add", "move", "--to", home_.path()});
  {
    Terminal no(becomingTervano({"remove", uid}));
    no.readUntil("aus der Aktionsliste entfernen? [j/N] ");
    no.type("n\n");
    no.readUntil("Es wurde nichts entfernt.");
  }
  Terminal yes(becomingTervano({"remove", uid}));
  yes.readUntil("[j/N] ");
  yes.type("j\n");
  EXPECT_EQ(yes.waitForExit(), 0);
  EXPECT_EQ(home_.succeed({"list"}), "");
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
