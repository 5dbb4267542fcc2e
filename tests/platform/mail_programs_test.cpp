#include "platform/linux/mail_programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tervano::test {
namespace {

using testing::ElementsAre;

class MailProgramsTest : public testing::Test {
 protected:
  static std::vector<std::string> command(const std::string& exec,
                                          const std::vector<std::string>& paths,
                                          const std::string& identifier = "odd") {
    ApplicationEntry entry;
    entry.identifier = identifier;
    entry.name = "Odd Mail";
    entry.exec = exec;
    Error error;
    const auto command = mailCommandAttaching(paths, entry, error);
    return command ? command->arguments : std::vector<std::string>{error.message};
  }

  static bool isInTerminal(const std::string& exec) {
    ApplicationEntry entry;
    entry.exec = exec;
    Error error;
    return mailCommandAttaching({"/a"}, entry, error).value().inTerminal;
  }

  const std::vector<std::string> two_{"/a b", "/c,d'e&f"};
};

TEST_F(MailProgramsTest, ThunderbirdGetsOneListOfEscapedURLs) {
  EXPECT_THAT(command("/usr/bin/thunderbird %u", two_),
              ElementsAre("/usr/bin/thunderbird", "-compose",
                          "attachment='file:///a%20b,file:///c%2Cd%27e%26f'"));
}

TEST_F(MailProgramsTest, ThunderbirdsKinAreStartedLikeIt) {
  for (const char* name : {"icedove", "betterbird", "thunderbird-bin"}) {
    EXPECT_THAT(command(std::string(name) + " %u", {"/a"}),
                ElementsAre(name, "-compose", "attachment='file:///a'"));
  }
}

TEST_F(MailProgramsTest, OptionsOfTheEntryStay) {
  EXPECT_THAT(
      command("env A=b thunderbird -P work -compose %u", {"/a"}),
      ElementsAre("env", "A=b", "thunderbird", "-P", "work", "-compose", "attachment='file:///a'"));
}

TEST_F(MailProgramsTest, EvolutionGetsAMailtoURLOfEscapedPaths) {
  EXPECT_THAT(command("evolution %U", two_),
              ElementsAre("evolution", "mailto:?attach=/a%20b&attach=/c%2Cd%27e%26f"));
}

TEST_F(MailProgramsTest, KMailGetsAnOptionForEachURL) {
  EXPECT_THAT(command("kmail -qwindowtitle %c %u", two_),
              ElementsAre("kmail", "-qwindowtitle", "Odd Mail", "--composer", "--attach",
                          "file:///a%20b", "--attach", "file:///c%2Cd%27e%26f"));
}

TEST_F(MailProgramsTest, ClawsMailAndSylpheedGetPaths) {
  EXPECT_THAT(command("claws-mail %u", two_),
              ElementsAre("claws-mail", "--attach", "/a b", "/c,d'e&f"));
  EXPECT_THAT(command("sylpheed --compose %u", two_),
              ElementsAre("sylpheed", "--compose", "--attach", "/a b", "/c,d'e&f"));
}

TEST_F(MailProgramsTest, AControlCharacterIsNotGivenToAProgramThatPassesLinesOn) {
  EXPECT_THAT(
      command("claws-mail %u", {"/a", "/b\n/etc/passwd"}),
      ElementsAre("The mail program \"Odd Mail\" cannot be given \"/b\n/etc/passwd\", whose "
                  "name has a control character"));
  EXPECT_THAT(command("thunderbird %u", {"/b\n/etc/passwd"}),
              ElementsAre("thunderbird", "-compose", "attachment='file:///b%0A/etc/passwd'"));
}

TEST_F(MailProgramsTest, BalsaGetsOneFile) {
  EXPECT_THAT(command("balsa -m %U", {"/a b"}), ElementsAre("balsa", "--attach=/a b"));
  EXPECT_THAT(
      command("balsa -m %U", two_),
      ElementsAre("The mail program \"Odd Mail\" cannot be given more than one attachment"));
}

TEST_F(MailProgramsTest, ProgramsOfTheTerminalRunInOne) {
  EXPECT_THAT(command("mutt %u", two_), ElementsAre("mutt", "-a", "/a b", "/c,d'e&f", "--"));
  EXPECT_THAT(command("neomutt -n %u", {"/a"}), ElementsAre("neomutt", "-n", "-a", "/a", "--"));
  EXPECT_THAT(command("alpine -url %u", two_),
              ElementsAre("alpine", "-attachlist", "/a b", "/c,d'e&f"));
  EXPECT_TRUE(isInTerminal("mutt %u"));
  EXPECT_FALSE(isInTerminal("thunderbird %u"));
}

TEST_F(MailProgramsTest, AnUnknownProgramGetsNothing) {
  for (const char* exec :
       {"browser %u", "flatpak run org.example.Mail @@u %u @@", "", "\"open", "xterm -e mutt %u"}) {
    EXPECT_THAT(command(exec, {"/a"}),
                ElementsAre("The mail program \"Odd Mail\" cannot be given attachments"))
        << exec;
  }
}

TEST_F(MailProgramsTest, AWrapperOfItsOwnIsKnownByTheEntry) {
  EXPECT_THAT(command("/home/u/bin/tb %u", {"/a"}, "thunderbird"),
              ElementsAre("/home/u/bin/tb", "-compose", "attachment='file:///a'"));
  EXPECT_THAT(
      command("flatpak run org.mozilla.Thunderbird @@u %u @@", {"/a"}, "org.mozilla.Thunderbird"),
      ElementsAre("The mail program \"Odd Mail\" cannot be given attachments"));
}

}  // namespace
}  // namespace tervano::test
