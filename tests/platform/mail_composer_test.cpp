#include "platform/linux/mail_composer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "platform/run_loop.h"
#include "tests/platform/workspace_fixture.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr char kMailto[] = "x-scheme-handler/mailto";
constexpr char kPortal[] = "org.freedesktop.portal.Desktop";
constexpr char kPortalPath[] = "/org/freedesktop/portal/desktop";
constexpr char kEmail[] = "org.freedesktop.portal.Email";
constexpr char kRequest[] = "org.freedesktop.portal.Request";
constexpr char kEmailXML[] = R"(<node><interface name="org.freedesktop.portal.Email">
  <method name="ComposeEmail"><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/>
    <arg type="o" direction="out"/></method>
  <property name="version" type="u" access="read"/></interface></node>)";
constexpr char kRequestXML[] = R"(<node><interface name="org.freedesktop.portal.Request">
  <method name="Close"/></interface></node>)";
constexpr guint32 kSuccess = 0;
constexpr guint32 kCancelled = 1;
constexpr guint32 kOther = 2;

// The desktop's portal, with a backend for mail.
class FakePortal {
 public:
  // Answers the call, having done what it likes.
  using Behaviour = std::function<GVariant*(FakePortal& portal, const std::string& request)>;

  FakePortal(const std::string& address, Behaviour behaviour, guint32 version = 3)
      : behaviour_(std::move(behaviour)) {
    service_.emplace(
        address, kPortal, kPortalPath, kEmail, kEmailXML, [this](const FakeBusService::Call& call) {
          return call.method == "Close" ? g_variant_new("()") : behaviour_(*this, requestOf(call));
        });
    service_->setProperty("version", g_variant_new_uint32(version));
  }

  void respond(const std::string& request, guint32 response) {
    service_->emitSignal(request, kRequest, "Response",
                         g_variant_new("(u@a{sv})", response,
                                       g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0)));
  }
  static GVariant* handle(const std::string& request) {
    return g_variant_new("(o)", request.c_str());
  }
  void die() { service_.reset(); }
  // Lets the request of the last call be closed.
  void showRequest() { service_->addObject(requestOf(service_->calls().back()), kRequestXML); }

  const std::vector<FakeBusService::Call>& calls() const { return service_->calls(); }

 private:
  // Where the documentation of the portal puts it.
  static std::string requestOf(const FakeBusService::Call& call) {
    std::string sender = call.sender.substr(1);
    std::replace(sender.begin(), sender.end(), '.', '_');
    const std::string key = "'handle_token': <'";
    const auto begin = call.arguments.find(key) + key.size();
    const auto end = call.arguments.find('\'', begin);
    return std::string(kPortalPath) + "/request/" + sender + "/" +
           call.arguments.substr(begin, end - begin);
  }

  Behaviour behaviour_;
  std::optional<FakeBusService> service_;
};

// Answers with the request and, after that, with the response.
FakePortal::Behaviour responding(guint32 response) {
  return [response](FakePortal& portal, const std::string& request) {
    platform().runLoop->dispatchAsyncOnMainQueue(
        [&portal, request, response] { portal.respond(request, response); });
    return FakePortal::handle(request);
  };
}

constexpr char kFailure[] = "failed The mail program \"Odd Handler\" cannot be given attachments";

class MailComposerTest : public WorkspaceFixture {
 protected:
  // The default mail program; answers its entry.
  std::string installMail(const std::string& program, const std::string& more = "") {
    return install(program, "Exec=" + recorder(program) + " %u\n" + more, kMailto);
  }

  std::string escaped(const std::string& path) {
    return Url::fileURLWithPath(path).absoluteString();
  }
};

TEST_F(MailComposerTest, TheMailProgramGetsTheFilesAsAttachments) {
  const NoBus noBus;
  const auto files = hostileFiles();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, installMail("thunderbird"), files), ElementsAre("opened"));
  std::string list;
  for (const auto& path : files) list += (list.empty() ? "" : ",") + escaped(path);
  EXPECT_THAT(onlyRun().arguments, ElementsAre("-compose", "attachment='" + list + "'"));
}

TEST_F(MailComposerTest, AnotherMailProgramGetsPaths) {
  const NoBus noBus;
  const std::vector<std::string> files{file("a b"), file("\xff"), file("%u")};
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, installMail("claws-mail"), files), ElementsAre("opened"));
  auto expected = files;
  expected.insert(expected.begin(), "--attach");
  EXPECT_THAT(onlyRun().arguments, ElementsAreArray(expected));
}

TEST_F(MailComposerTest, AMailProgramOfTheTerminalRunsInOne) {
  const NoBus noBus;
  const std::string terminal = platform_.home().path() + "/bin/x-terminal-emulator";
  std::ofstream(terminal) << "#!/bin/sh\nshift\nDESKTOP_STARTUP_ID=terminal exec \"$@\"\n";
  chmod(terminal.c_str(), 0755);
  platform_.home().setVariable("PATH", platform_.home().path() + "/bin:/usr/bin:/bin");
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, installMail("mutt"), hostileFiles()), ElementsAre("opened"));
  auto expected = hostileFiles();
  expected.insert(expected.begin(), "-a");
  expected.emplace_back("--");
  EXPECT_EQ(onlyRun().arguments, expected);
  EXPECT_EQ(onlyRun().startupIdentifier, "terminal");
}

TEST_F(MailComposerTest, AMailProgramThatCannotAttachIsNotOpened) {
  const NoBus noBus;
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, installMail("odd-mail"), {file("a")}), ElementsAre(kFailure));
  EXPECT_FALSE(hasRun());
}

TEST_F(MailComposerTest, AnotherApplicationJustOpensTheFiles) {
  const NoBus noBus;
  installMail("thunderbird");
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("viewer", "Exec=" + recorder() + " %F\n"), {file("a")}),
              ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(file("a")));
}

TEST_F(MailComposerTest, AURLIsOpenedAndAFileAmongURLsIsAnError) {
  const NoBus noBus;
  const auto path = installMail("thunderbird");
  auto peer = startPeer();
  peer.say("open-with " + asWord(escaped(path)) + " " + asWord("mailto:a@b"));
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("mailto:a@b"));
  peer.say("open-with " + asWord(escaped(path)) + " " + asWord(escaped(file("a"))) + " " +
           asWord("mailto:a@b"));
  EXPECT_THAT(linesUntilDone(peer),
              ElementsAre("failed \"mailto:a@b\" is no file that can be attached"));
}

TEST_F(MailComposerTest, AnEntryThatOverridesTheDefaultIsTheMailProgram) {
  const NoBus noBus;
  installMail("thunderbird");
  const auto other = platform_.home().path() + "/thunderbird.desktop";
  std::filesystem::copy_file(applications() + "/thunderbird.desktop", other);
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, other, {file("a")}), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("-compose", HasSubstr("attachment=")));
}

TEST_F(MailComposerTest, WhatCannotBeAttachedIsAnErrorBeforeAnythingOpens) {
  const PrivateBus bus;
  FakePortal portal(bus.address(), responding(kSuccess));
  const std::string files = platform_.home().path() + "/files";
  std::filesystem::create_directories(files);
  ASSERT_EQ(mkfifo((files + "/pipe").c_str(), 0600), 0);
  for (const char* program : {"odd-mail", "thunderbird"}) {
    const auto mail = installMail(program);
    auto peer = startPeer();
    EXPECT_THAT(
        opened(peer, mail, {file("a"), files}),
        ElementsAre("failed \"" + files + "\" is a folder, and a folder cannot be attached"));
    EXPECT_THAT(
        opened(peer, mail, {file("a"), files + "/gone"}),
        ElementsAre("failed Could not attach \"" + files + "/gone\": No such file or directory"));
    EXPECT_THAT(opened(peer, mail, {file("a"), files + "/pipe"}),
                ElementsAre("failed \"" + files + "/pipe\" is no file that can be attached"));
  }
  EXPECT_THAT(portal.calls(), IsEmpty());
  EXPECT_FALSE(hasRun());
}

TEST_F(MailComposerTest, MoreThanOneMessageHoldsIsAnError) {
  const NoBus noBus;
  std::vector<std::string> files;
  for (int i = 0; i < 1'000; ++i) files.push_back(file(std::string(150, 'x') + std::to_string(i)));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, installMail("thunderbird"), files),
              ElementsAre("failed 1000 files are more than the mail program \"Odd Handler\" can be "
                          "given for one message"));
  EXPECT_FALSE(hasRun());
}

TEST_F(MailComposerTest, AKnownMailProgramIsAskedItselfAlsoWhereThereIsAPortal) {
  const PrivateBus bus;
  FakePortal portal(bus.address(), responding(kSuccess));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, installMail("thunderbird"), {file("a")}), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("-compose", HasSubstr("attachment=")));
  EXPECT_THAT(portal.calls(), IsEmpty());
}

TEST_F(MailComposerTest, WhatAKnownMailProgramCannotBeGivenIsNotLeftToThePortal) {
  const PrivateBus bus;
  FakePortal portal(bus.address(), responding(kSuccess));
  const auto answer = [this](const std::string& program, const std::vector<std::string>& files) {
    const auto mail = installMail(program);
    auto peer = startPeer();
    return opened(peer, mail, files);
  };
  EXPECT_THAT(answer("claws-mail", {file("line\nbreak")}),
              ElementsAre(HasSubstr("whose name has a control character")));
  EXPECT_THAT(answer("balsa", {file("a"), file("b")}),
              ElementsAre(HasSubstr("cannot be given more than one attachment")));
  EXPECT_THAT(portal.calls(), IsEmpty());
  EXPECT_FALSE(hasRun());
}

TEST_F(MailComposerTest, ABrowserIsNotAskedForAMessageWithoutItsAttachments) {
  const PrivateBus bus;
  FakePortal portal(bus.address(), responding(kSuccess));
  auto peer = startPeer();
  EXPECT_THAT(
      opened(peer, installMail("odd-browser", "Categories=Network;WebBrowser;\n"), {file("a")}),
      ElementsAre(kFailure));
  EXPECT_THAT(portal.calls(), IsEmpty());
  EXPECT_FALSE(hasRun());
}

// With a mail program of which only the desktop's portal may know how to attach files.
class MailPortalTest : public MailComposerTest {
 protected:
  MailPortalTest() : mail_(installMail("odd-mail")) {}

  // Keeps the request, which stays without a response, in `open_`.
  FakePortal::Behaviour keepingOpen() {
    return [this](FakePortal&, const std::string& request) {
      open_ = request;
      return FakePortal::handle(request);
    };
  }

  void TearDown() override { EXPECT_FALSE(hasRun()); }

  PrivateBus bus_;
  std::string mail_;
  std::string open_;
};

TEST_F(MailPortalTest, ItGetsDescriptorsOfTheFiles) {
  FakePortal portal(bus_.address(), responding(kSuccess));
  auto files = hostileFiles();
  std::filesystem::create_symlink(files.front(), platform_.home().path() + "/files/link");
  files.push_back(platform_.home().path() + "/files/link");
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, files), ElementsAre("opened"));
  ASSERT_THAT(portal.calls(), SizeIs(1));
  EXPECT_EQ(portal.calls()[0].method, "ComposeEmail");
  std::vector<std::string> contents;
  for (const auto& name : kHostileNames) contents.push_back("contents of " + name);
  contents.push_back(contents.front());
  EXPECT_EQ(portal.calls()[0].fileContents, contents);
  EXPECT_THAT(portal.calls()[0].arguments, testing::Not(HasSubstr("activation_token")));
}

TEST_F(MailPortalTest, AResponseBeforeTheAnswerCounts) {
  FakePortal portal(bus_.address(), [](FakePortal& own, const std::string& request) {
    own.respond(request, kOther);
    return FakePortal::handle(request);
  });
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(StartsWith(kFailure)));
}

TEST_F(MailPortalTest, ARequestOfAnotherNameIsHeard) {
  FakePortal portal(bus_.address(), [](FakePortal& own, const std::string& /*request*/) {
    const std::string request = std::string(kPortalPath) + "/request/old";
    platform().runLoop->dispatchAsyncOnMainQueue([&own, request] { own.respond(request, kOther); });
    return FakePortal::handle(request);
  });
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(StartsWith(kFailure)));
}

TEST_F(MailPortalTest, ADialogThatTheUserClosesIsNoError) {
  FakePortal portal(bus_.address(), responding(kCancelled));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre("opened"));
}

TEST_F(MailPortalTest, AResponseThatIsAFailureIsAnError) {
  FakePortal portal(bus_.address(), responding(kOther));
  auto peer = startPeer();
  EXPECT_THAT(
      opened(peer, mail_, {file("a")}),
      ElementsAre(std::string(kFailure) + "; the desktop's portal could not open the message"));
}

TEST_F(MailPortalTest, WithoutABackendForMailItIsAnError) {
  const FakeBusService portal(bus_.address(), kPortal, kPortalPath, kRequest, kRequestXML,
                              [](const auto&) { return g_variant_new("()"); });
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(kFailure));
}

TEST_F(MailPortalTest, WithoutAPortalItIsAnError) {
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(kFailure));
}

TEST_F(MailPortalTest, APortalThatCannotBeStartedIsAnError) {
  const PrivateBus bus(std::map<std::string, std::string>{{kPortal, "/nonexistent/program"}});
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(kFailure));
}

TEST_F(MailPortalTest, APortalThatDiesIsAnError) {
  FakePortal portal(bus_.address(), [](FakePortal& own, const std::string& request) {
    platform().runLoop->dispatchAsyncOnMainQueue([&own] { own.die(); });
    return FakePortal::handle(request);
  });
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}),
              ElementsAre(std::string(kFailure) + "; the desktop's portal ended"));
}

TEST_F(MailPortalTest, ABusThatDiesIsAnError) {
  FakePortal portal(bus_.address(), [this](FakePortal&, const std::string&) -> GVariant* {
    bus_.kill();
    return nullptr;
  });
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(StartsWith(kFailure)));
}

TEST_F(MailPortalTest, ABusThatDiesWhileADialogIsOpenIsAnError) {
  FakePortal portal(bus_.address(), [this](FakePortal&, const std::string& request) {
    platform().runLoop->dispatchAsyncOnMainQueue([this] { bus_.kill(); });
    return FakePortal::handle(request);
  });
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre(StartsWith(kFailure)));
}

TEST_F(MailPortalTest, APortalThatDoesNotTakeTheRequestIsAnError) {
  FakePortal portal(bus_.address(),
                    [](FakePortal&, const std::string&) -> GVariant* { return nullptr; });
  auto peer = startPeer({"hasty"});
  EXPECT_THAT(opened(peer, mail_, {file("a")}),
              ElementsAre(std::string(kFailure) + "; the desktop's portal did not answer"));
}

TEST_F(MailPortalTest, ARequestThatWasNotTakenInTimeIsClosed) {
  FakePortal portal(bus_.address(),
                    [](FakePortal&, const std::string&) -> GVariant* { return nullptr; });
  auto peer = startPeer({"hasty"});
  peer.say(openCommand(mail_, {file("a")}));
  ASSERT_TRUE(waitUntil([&] { return !portal.calls().empty(); }));
  // The portal has the request, but does not say so.
  portal.showRequest();
  EXPECT_THAT(linesUntilDone(peer), ElementsAre(StartsWith(kFailure)));
  EXPECT_TRUE(waitUntil([&] { return portal.calls().back().method == "Close"; }));
}

TEST_F(MailPortalTest, ADialogThatStaysOpenHasBeenAskedFor) {
  FakePortal portal(bus_.address(), keepingOpen());
  auto peer = startPeer({"impatient"});
  peer.say(openCommand(mail_, {file("a")}));
  EXPECT_EQ(nextLine(peer), "opened");
  EXPECT_FALSE(peer.hear(0));
  portal.respond(open_, kSuccess);
  EXPECT_EQ(nextLine(peer), "done");
}

TEST_F(MailPortalTest, ADialogThatFailsLaterIsToldToTheUser) {
  FakePortal portal(bus_.address(), keepingOpen());
  auto peer = startPeer({"impatient"});
  peer.say(openCommand(mail_, {file("a")}));
  EXPECT_EQ(nextLine(peer), "opened");
  portal.respond(open_, kOther);
  const std::string sentence =
      "Could not compose an e-mail: the desktop's portal could not open the message";
  EXPECT_THAT(linesUntilDone(peer),
              UnorderedElementsAre("log " + sentence, "tell Tervano: " + sentence));
}

TEST_F(MailPortalTest, AsManyFilesAsTheBusTakesGoInOneMessage) {
  FakePortal portal(bus_.address(), responding(kSuccess));
  // What the reference bus takes unless it is told otherwise.
  constexpr std::size_t kDescriptors = 16;
  std::vector<std::string> files;
  for (std::size_t i = 0; i < kDescriptors; ++i) files.push_back(file(std::to_string(i)));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, files), ElementsAre("opened"));
  ASSERT_THAT(portal.calls(), SizeIs(1));
  EXPECT_THAT(portal.calls()[0].fileContents, SizeIs(kDescriptors));
  files.push_back(file("one more"));
  EXPECT_THAT(opened(peer, mail_, files), ElementsAre(StartsWith(kFailure)));
  // The bus has ended the connection; a new one is made.
  EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre("opened"));
  EXPECT_THAT(portal.calls(), SizeIs(2));
}

TEST_F(MailPortalTest, MoreFilesThanAnyBusTakesAreAnError) {
  FakePortal portal(bus_.address(), responding(kSuccess));
  std::vector<std::string> files;
  for (std::size_t i = 0; i <= MailPortal::kMaximumFiles; ++i) {
    files.push_back(file(std::to_string(i)));
  }
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, mail_, files), ElementsAre(kFailure));
  EXPECT_THAT(portal.calls(), IsEmpty());
}

TEST_F(MailPortalTest, ItGetsTheTokenOfTheSessionWhenItKnowsTokens) {
  platform_.home().setVariable("XDG_ACTIVATION_TOKEN", "token");
  for (const guint32 version : {3U, 4U}) {
    const PrivateBus bus;
    FakePortal portal(bus.address(), responding(kSuccess), version);
    auto peer = startPeer();
    EXPECT_THAT(opened(peer, mail_, {file("a")}), ElementsAre("opened"));
    ASSERT_THAT(portal.calls(), SizeIs(1));
    EXPECT_EQ(
        portal.calls()[0].arguments.find("'activation_token': <'token'>") != std::string::npos,
        version == 4);
  }
}

}  // namespace
}  // namespace tervano::test
