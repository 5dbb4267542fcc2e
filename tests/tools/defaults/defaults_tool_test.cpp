#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

#include "archive/property_list.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/plist_defaults_stores.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"
#include "tests/support/program.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"
#include "tools/defaults/settings_database.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kDomain[] = "org.example.App";

constexpr char kSchemas[] = R"(<schemalist>
  <schema id="org.example.App" path="/org/example/app/">
    <key name="greeting" type="s"><default>'hello'</default></key>
    <key name="count" type="u"><default>3</default></key>
    <key name="list" type="as"><default>['a']</default></key>
  </schema>
  <schema id="org.example.app.window" path="/org/example/app/window/">
    <key name="width" type="i"><default>640</default></key>
  </schema>
  <schema id="org.example.App.profile">
    <key name="name" type="s"><default>''</default></key>
  </schema>
  <schema id="org.example.App.far" path="/apps/far/">
    <key name="x" type="i"><default>0</default></key>
  </schema>
  <schema id="org.example.App.general" path="/general/">
    <key name="x" type="i"><default>0</default></key>
  </schema>
  <schema id="org.example.App.shared" path="/org/shared/place/">
    <key name="mine" type="i"><default>0</default></key>
  </schema>
  <schema id="com.other.Thing" path="/org/shared/place/">
    <key name="theirs" type="i"><default>0</default></key>
  </schema>
  <schema id="com.other.Far" path="/apps/far/other/">
    <key name="x" type="i"><default>0</default></key>
  </schema>
  <schema id="org.example.Apple" path="/org/example/apple/">
    <key name="greeting" type="s"><default>'hello'</default></key>
  </schema>
  <schema id="org.example.App-plugins.extra" path="/org/example/app/plugins/extra/">
    <key name="on" type="b"><default>false</default></key>
  </schema>
  <schema id="org.example.Untouched" path="/org/example/untouched/">
    <key name="x" type="i"><default>0</default></key>
  </schema>
  <schema id="org.example.Untouched.item">
    <key name="x" type="i"><default>0</default></key>
  </schema>
</schemalist>)";

// One sentence on standard error.
void expectOneSentence(const std::string& errors) {
  EXPECT_THAT(errors, AllOf(StartsWith("tervano-defaults: "), EndsWith(".\n")));
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
}

// A private home with schemas of its own, and a bus on which the real settings service is started
// when it is needed.
class DefaultsToolTest : public testing::Test {
 protected:
  DefaultsToolTest() {
    home_.setVariable("GSETTINGS_SCHEMA_DIR", at("schemas"));
    home_.setVariable("GSETTINGS_BACKEND", std::nullopt);
    home_.setVariable("DCONF_PROFILE", std::nullopt);
    home_.setVariable("DISPLAY", std::nullopt);
    write(at("schemas/tests.gschema.xml"), kSchemas);
    must("/usr/bin/glib-compile-schemas", {"--strict", at("schemas")});
    bus_ = std::make_unique<PrivateBus>(
        std::map<std::string, std::string>{{"ca.desrt.dconf", "/usr/libexec/dconf-service"}});
  }

  std::string at(const std::string& name) const { return home_.path() + "/" + name; }

  static std::string write(const std::string& path, const std::string& bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  // Runs another program that must succeed; answers its output.
  static std::string must(const std::string& path, std::vector<std::string> arguments) {
    ProgramStart start;
    start.path = path;
    start.arguments = std::move(arguments);
    const auto outcome = runProgram(start);
    EXPECT_EQ(outcome.status, 0) << path << ": " << outcome.errors;
    return outcome.output;
  }

  static void set(const std::string& key, const std::string& value) {
    must("/usr/bin/dconf", {"write", key, value});
  }
  // Many at once, in the key file that dconf dumps.
  void load(const std::string& text) const { loadFile(write(at("to-load"), text)); }
  static void loadFile(const std::string& path) {
    must("/bin/sh", {"-c", "exec /usr/bin/dconf load / < \"$1\"", "sh", path});
  }
  // Everything that is set.
  static std::string dump() { return must("/usr/bin/dconf", {"dump", "/"}); }
  static std::string get(const std::string& schema, const std::string& key) {
    return must("/usr/bin/gsettings", {"get", schema, key});
  }

  static ProgramOutcome start(std::vector<std::string> words,
                              std::function<bool()> prepare = nullptr) {
    ProgramStart start;
    start.path = TERVANO_DEFAULTS;
    start.arguments = std::move(words);
    start.prepare = std::move(prepare);
    return runProgram(start);
  }

  // Deletes with success; answers the backup's folder, empty when there is none.
  std::string deleted(const std::string& domain = kDomain) const {
    const auto outcome = start({"delete", domain});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.errors, "");
    return folderIn(outcome.output);
  }
  // The folder that the output tells, which must be all that it tells.
  static std::string folderIn(const std::string& output) {
    if (output.empty()) return "";
    std::smatch parts;
    if (!std::regex_match(output, parts,
                          std::regex("Backed up to (.*)\\. To restore: (.*) restore (.*)\n"))) {
      ADD_FAILURE() << output;
      return "";
    }
    EXPECT_EQ(parts[1], parts[3]);
    EXPECT_TRUE(fs::equivalent(parts[2].str(), TERVANO_DEFAULTS)) << parts[2];
    return parts[1];
  }
  static void restored(const std::string& folder) {
    const auto outcome = start({"restore", folder});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "");
  }
  // Fails with one sentence and nothing else; answers the sentence.
  static std::string fails(std::vector<std::string> words,
                           std::function<bool()> prepare = nullptr) {
    const auto outcome = start(std::move(words), std::move(prepare));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    expectOneSentence(outcome.errors);
    return outcome.errors;
  }

  std::string backupFolder() const { return home_.dataHome() + "/tervano/backups/defaults"; }
  std::vector<std::string> backups() const {
    std::vector<std::string> paths;
    if (!fs::exists(backupFolder())) return paths;
    for (const auto& entry : fs::directory_iterator(backupFolder())) {
      paths.push_back(entry.path().string());
    }
    return paths;
  }

  static std::string preferences(const std::string& suite = kDomain) {
    return PlistDefaultsStores::pathForSuiteName(suite);
  }
  static void setPreference(const std::string& key, const Value& value,
                            const std::string& suite = kDomain) {
    const auto store = PlistDefaultsStores("other").initWithSuiteName(suite);
    store->setObject(value, key);
    EXPECT_TRUE(store->synchronize());
  }
  static Value preference(const std::string& key, const std::string& suite = kDomain) {
    return PlistDefaultsStores("other").initWithSuiteName(suite)->objectForKey(key);
  }

  // A database of the system's below the user's, in which these keys are locked.
  void lock(const std::vector<std::string>& keys) {
    fs::create_directories(at("system.d/locks"));
    write(at("system.d/values"), "[org/example/app]\ngreeting='from the system'\n");
    std::string lines;
    for (const auto& key : keys) lines += key + "\n";
    write(at("system.d/locks/keys"), lines);
    must("/usr/bin/dconf", {"compile", at("system.db"), at("system.d")});
    home_.setVariable("DCONF_PROFILE",
                      write(at("profile"), "user-db:user\nfile-db:" + at("system.db") + "\n"));
  }

  MemoryTemporaryFolder memory_;
  ScopedPlatform platform_;
  TemporaryHome& home_ = platform_.home();
  std::unique_ptr<PrivateBus> bus_;
};

// What is reset.

TEST_F(DefaultsToolTest, TheSettingsOfTheDomainsSchemasAreReset) {
  must("/usr/bin/gsettings", {"set", kDomain, "greeting", "good day"});
  must("/usr/bin/gsettings", {"set", kDomain, "list", "['x', 'y']"});
  must("/usr/bin/gsettings", {"set", "org.example.app.window", "width", "800"});
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(get(kDomain, "greeting"), "'hello'\n");
  EXPECT_EQ(get(kDomain, "list"), "['a']\n");
  EXPECT_EQ(get("org.example.app.window", "width"), "640\n");
  EXPECT_EQ(dump(), "");
}

TEST_F(DefaultsToolTest, ANameInAnotherCaseIsTheSameDomain) {
  set("/org/example/app/greeting", "'good day'");
  set("/org/example/app/window/width", "800");
  EXPECT_NE(deleted("ORG.Example.aPP"), "");
  EXPECT_EQ(dump(), "");
}

TEST_F(DefaultsToolTest, RelocatableInstancesAndUndeclaredKeysBelowItsPathAreReset) {
  must("/usr/bin/gsettings",
       {"set", "org.example.App.profile:/org/example/app/profiles/:one/", "name", "first"});
  load("[org/example/app]\nundeclared=5\n[org/example/app/a/b/c/d/e/f/g/h]\ndeep=true\n");
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(dump(), "");
}

TEST_F(DefaultsToolTest, AnApplicationWithoutSchemasIsFoundInTheDatabaseByItsName) {
  load("[com/gone/tool]\nx=1\n[com/Gone/TOOL/sub]\ny=2\n[com/gone/toolbox]\nx=3\n");
  EXPECT_NE(deleted("com.gone.Tool"), "");
  EXPECT_EQ(dump(), "[com/gone/toolbox]\nx=3\n");
}

TEST_F(DefaultsToolTest, ASchemaWithAPathElsewhereIsResetThere) {
  load("[apps/far]\nx=1\nundeclared=2\n[apps/far/sub]\nx=3\n");
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(dump(), "");
}

TEST_F(DefaultsToolTest, OtherApplicationsAreNotTouched) {
  const std::string others =
      "[apps/far/other]\nx=1\n\n"
      "[apps/far/other/sub]\ny=2\n\n"
      "[org]\nx=3\n\n"
      "[org/example]\nx=4\n\n"
      "[org/example/app/plugins/extra]\non=true\n\n"
      "[org/example/app/plugins/extra/sub]\nx=5\n\n"
      "[org/example/apple]\ngreeting='hi'\n\n"
      "[org/example/appx]\nx=6\n\n"
      "[org/example/untouched]\nx=7\n";
  load(others);
  load("[org/example/app]\ngreeting='good day'\n[org/example/app/plugins]\nx=1\n[apps/far]\nx=1\n");
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(dump(), others);
}

TEST_F(DefaultsToolTest, BelowAGeneralPathOnlyDeclaredKeysAreReset) {
  load("[general]\nx=1\nundeclared=2\n\n[general/sub]\nx=3\n");
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(dump(), "[general]\nundeclared=2\n\n[general/sub]\nx=3\n");
}

TEST_F(DefaultsToolTest, InASharedPathWhatAnotherSchemaDeclaresStays) {
  load("[org/shared/place]\nmine=1\ntheirs=2\nundeclared=3\n");
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(dump(), "[org/shared/place]\ntheirs=2\n");
}

TEST_F(DefaultsToolTest, AThousandKeysAreReset) {
  std::string text = "[org/example/app/many]\n";
  for (int number = 0; number < 1000; ++number) {
    text += "key" + std::to_string(number) + "='" + std::string(100, 'x') + "'\n";
  }
  load(text);
  const std::string before = dump();
  const std::string folder = deleted();
  EXPECT_EQ(dump(), "");
  restored(folder);
  EXPECT_EQ(dump(), before);
}

TEST_F(DefaultsToolTest, ASchemaThatIsInstalledButHasNothingSetIsAQuietSuccess) {
  EXPECT_EQ(deleted("org.example.Untouched"), "");
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, ASecondDeleteIsAQuietSuccess) {
  set("/org/example/app/greeting", "'good day'");
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(deleted(), "");
  EXPECT_THAT(backups(), SizeIs(1));
}

// What is no domain.

TEST_F(DefaultsToolTest, AnUnknownDomainIsASentence) {
  set("/org/example/app/greeting", "'good day'");
  EXPECT_EQ(fails({"delete", "org.example.Nobody"}),
            "tervano-defaults: Domain (org.example.Nobody) not found: no settings and no "
            "preferences are known by that name.\n");
  EXPECT_EQ(dump(), "[org/example/app]\ngreeting='good day'\n");
}

TEST_F(DefaultsToolTest, ATooGeneralNameIsRefused) {
  set("/org/example/app/greeting", "'good day'");
  setPreference("x", 1, "org.example");
  for (const auto* name : {"org", "org.example", "example", "*", "-x"}) {
    EXPECT_THAT(fails({"delete", name}), HasSubstr("is too general: "));
  }
  EXPECT_EQ(dump(), "[org/example/app]\ngreeting='good day'\n");
  EXPECT_EQ(preference("x", "org.example"), Value(1));
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, HostileNamesAreOneSentenceAndTouchNothing) {
  set("/org/example/app/greeting", "'good day'");
  setPreference("x", 1);
  for (const std::string& name :
       {std::string(), std::string("../../x"), std::string("../../org.example.App"),
        std::string("*.*.*"), std::string("org.example.*"), std::string("org.example.App\n"),
        std::string("org.example.App."), std::string("org..App"), std::string("org/example/app"),
        std::string("/org/example/app/"), std::string("org.example.\xFF"),
        std::string("org.example.\x1B[2J"), std::string("org.example.%s%n"),
        std::string("org.example.App\x01"), std::string(10000, 'a'),
        "org.example." + std::string(10000, '\n'), "a.b." + std::string(10000, '.'),
        std::string("--help"), std::string("org.example.App:/org/example/")}) {
    const std::string sentence = fails({"delete", name});
    EXPECT_THAT(sentence, StartsWith("tervano-defaults: Domain ("));
    EXPECT_LE(sentence.size(), 700u);
  }
  EXPECT_EQ(dump(), "[org/example/app]\ngreeting='good day'\n");
  EXPECT_EQ(preference("x"), Value(1));
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, WrongUsageIsOneSentenceAndStatus2) {
  for (const std::vector<std::string>& words : {std::vector<std::string>{},
                                                {"delete"},
                                                {"restore"},
                                                {"read", kDomain},
                                                {kDomain},
                                                {"delete", kDomain, "greeting"},
                                                {"--delete", kDomain},
                                                {""}}) {
    const auto outcome = start(words);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    expectOneSentence(outcome.errors);
  }
}

TEST_F(DefaultsToolTest, HelpTellsBothCommands) {
  const auto outcome = start({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("delete DOMAIN"), HasSubstr("restore BACKUP")));
}

// Backups.

TEST_F(DefaultsToolTest, RestoringPutsBackExactlyWhatWasSet) {
  load(R"([org/example/app]
greeting='good day'
count=uint32 7
list=@as []
boolean=true
byte=byte 0x41
bytes=b'a\xff'
third=0.33333333333333331
infinite=-inf
big=int64 -9223372036854775808
unsigned=uint64 18446744073709551615
text='line\nquote" backslash\\ tab\t \u0001 W\u00f6rter'
apostrophe="it's"
nothing=@ms nothing
something=@ms 'x'
nested=[({'a': <(1, [true])>}, objectpath '/a'), ({}, '/b')]
empty-tuple=@() ()
signature=signature 'a{sv}'
a key with blanks=1
k#;key=2

[org/example/app/profiles/:b1d-2]
name='second'
)");
  const std::string before = dump();
  const std::string folder = deleted();
  EXPECT_EQ(dump(), "");
  restored(folder);
  EXPECT_EQ(dump(), before);
}

TEST_F(DefaultsToolTest, RestoringKeepsWhatHasBeenSetElsewhereSinceThen) {
  load("[org/example/app]\ncount=uint32 7\ngreeting='good day'\n");
  const std::string folder = deleted();
  load("[org/example/app]\ngreeting='changed'\nlist=['new']\n");
  restored(folder);
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\ngreeting='good day'\nlist=['new']\n");
}

TEST_F(DefaultsToolTest, ABackupIsForItsOwnerOnly) {
  set("/org/example/app/greeting", "'good day'");
  setPreference("x", 1);
  const auto modeOf = [](const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  };
  const mode_t mask = umask(0);
  const std::string folder = deleted();
  umask(mask);
  EXPECT_TRUE(folder.starts_with(backupFolder() + "/" + kDomain + "-")) << folder;
  EXPECT_EQ(modeOf(folder), 0700u);
  EXPECT_EQ(modeOf(backupFolder()), 0700u);
  for (const auto* name : {"/settings.dconf", "/preferences.plist", "/domain"}) {
    EXPECT_EQ(modeOf(folder + name), 0600u);
  }
}

TEST_F(DefaultsToolTest, TheSettingsInABackupCanBeLoadedByDconfItself) {
  load("[org/example/app]\ncount=uint32 7\nlist=['x']\n\n[org/example/app/window]\nwidth=800\n");
  const std::string before = dump();
  const std::string folder = deleted();
  loadFile(folder + "/settings.dconf");
  EXPECT_EQ(dump(), before);
}

TEST_F(DefaultsToolTest, EveryDeleteHasABackupOfItsOwn) {
  std::vector<std::string> folders;
  for (int number = 1; number <= 3; ++number) {
    set("/org/example/app/count", "uint32 " + std::to_string(number));
    folders.push_back(deleted());
  }
  EXPECT_THAT(backups(), testing::UnorderedElementsAreArray(folders));
  restored(folders[1]);
  EXPECT_EQ(get(kDomain, "count"), "uint32 2\n");
}

TEST_F(DefaultsToolTest, APathWithBlanksIsToldAsOneWord) {
  home_.setVariable("XDG_DATA_HOME", at("it's a folder"));
  set("/org/example/app/greeting", "'good day'");
  const auto outcome = start({"delete", kDomain});
  ASSERT_EQ(outcome.status, 0);
  const auto at = outcome.output.find("To restore: ");
  ASSERT_NE(at, std::string::npos);
  must("/bin/sh", {"-c", outcome.output.substr(at + 12)});
  EXPECT_EQ(get(kDomain, "greeting"), "'good day'\n");
}

TEST_F(DefaultsToolTest, NothingIsResetWhenTheBackupFolderIsNotWritable) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  setPreference("x", 1);
  giveToNobody(home_.path());
  chmod(home_.dataHome().c_str(), 0555);
  EXPECT_THAT(fails({"delete", kDomain}, becomeNobody),
              AllOf(HasSubstr("Nothing was reset, since there is no backup: "),
                    HasSubstr("Permission denied")));
  EXPECT_EQ(preference("x"), Value(1));
}

TEST_F(DefaultsToolTest, NothingIsResetWhenAFileStandsInTheWayOfTheBackups) {
  set("/org/example/app/greeting", "'good day'");
  write(home_.dataHome() + "/tervano", "a file");
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("Nothing was reset, since there is no backup"));
  EXPECT_EQ(get(kDomain, "greeting"), "'good day'\n");
}

TEST_F(DefaultsToolTest, NothingIsResetWhenTheDiskIsFull) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  load("[org/example/app]\ngreeting='" + std::string(100'000, 'x') + "'\n");
  setPreference("x", 1);
  const std::string before = dump();
  const std::string small = home_.dataHome();
  const auto mountSmall = [small] {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k,mode=0700") == 0;
  };
  EXPECT_THAT(fails({"delete", kDomain}, mountSmall),
              AllOf(HasSubstr("Nothing was reset, since there is no backup: "),
                    HasSubstr("No space left on device")));
  EXPECT_EQ(dump(), before);
  EXPECT_EQ(preference("x"), Value(1));
}

TEST_F(DefaultsToolTest, ABackupThatFailsHalfwayLeavesNothingBehind) {
  set("/org/example/app/greeting", "'good day'");
  setPreference("x", Data(100'000));
  const auto limit = [] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit size{1000, 1000};
    return setrlimit(RLIMIT_FSIZE, &size) == 0;
  };
  EXPECT_THAT(fails({"delete", kDomain}, limit), HasSubstr("File too large"));
  EXPECT_THAT(backups(), IsEmpty());
  EXPECT_EQ(get(kDomain, "greeting"), "'good day'\n");
  EXPECT_FALSE(preference("x").isNull());
}

TEST_F(DefaultsToolTest, WhatTheBackupCannotHoldIsNamedAndStays) {
  load("[org/example/app]\ncount=uint32 7\n");
  set("/org/example/app/we=ird", "3");
  set("/org/example/app/sub[x]/y", "4");
  const auto outcome = start({"delete", kDomain});
  EXPECT_EQ(outcome.status, 1);
  expectOneSentence(outcome.errors);
  EXPECT_THAT(outcome.errors, HasSubstr("Settings that cannot be backed up were not reset: "
                                        "/org/example/app/sub[x]/y, /org/example/app/we=ird."));
  EXPECT_EQ(get(kDomain, "count"), "uint32 3\n");
  EXPECT_EQ(must("/usr/bin/dconf", {"read", "/org/example/app/we=ird"}), "3\n");
  EXPECT_EQ(must("/usr/bin/dconf", {"read", "/org/example/app/sub[x]/y"}), "4\n");
  EXPECT_NE(folderIn(outcome.output), "");
}

TEST_F(DefaultsToolTest, AValueWhoseTextCannotBeReadBackStays) {
  const std::string key = "/org/example/app/tiny";
  // The bus ends processes that have used it, so this is for another one.
  auto setter = forkChild([&](ParentLink&) {
    Settings settings;
    settings[key].reset(g_variant_ref_sink(g_variant_new_double(5e-324)));
    return SettingsDatabase().set(settings) ? 1 : 0;
  });
  ASSERT_EQ(setter.waitForExit(), 0);
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("were not reset: /org/example/app/tiny."));
  const GVariantPtr left = SettingsDatabase().userValue(key);
  ASSERT_NE(left, nullptr);
  EXPECT_EQ(g_variant_get_double(left.get()), 5e-324);
}

TEST_F(DefaultsToolTest, AFullStandardOutputIsToldAndTheBackupIsThere) {
  set("/org/example/app/greeting", "'good day'");
  const auto outcome = start({"delete", kDomain}, [] {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    return full >= 0 && dup2(full, STDOUT_FILENO) >= 0;
  });
  EXPECT_EQ(outcome.status, 1);
  expectOneSentence(outcome.errors);
  EXPECT_EQ(dump(), "");
  ASSERT_THAT(backups(), SizeIs(1));
  restored(backups().front());
  EXPECT_EQ(get(kDomain, "greeting"), "'good day'\n");
}

TEST_F(DefaultsToolTest, AReaderThatIsGoneStopsNothing) {
  set("/org/example/app/greeting", "'good day'");
  const auto outcome = start({"delete", kDomain}, [] {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    close(ends[0]);
    return dup2(ends[1], STDOUT_FILENO) >= 0 && dup2(ends[1], STDERR_FILENO) >= 0;
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(dump(), "");
  EXPECT_THAT(backups(), SizeIs(1));
}

// Restoring what is no backup.

TEST_F(DefaultsToolTest, WhatIsNoBackupIsNotRestored) {
  fs::create_directories(at("empty"));
  write(at("file"), "[org/example/app]\ncount=uint32 7\n");
  fs::create_directories(at("pipe"));
  ASSERT_EQ(mkfifo(at("pipe/domain").c_str(), 0600), 0);
  write(at("unfinished/settings.dconf"), "[org/example/app]\ncount=uint32 7\n");
  for (const std::string& path : {at("missing"), at("empty"), at("file"), at("pipe"),
                                  at("unfinished"), std::string(), std::string("\n")}) {
    EXPECT_THAT(fails({"restore", path}), HasSubstr("is no backup of this program."));
  }
  EXPECT_EQ(dump(), "");
}

TEST_F(DefaultsToolTest, ADamagedBackupIsNotRestoredInParts) {
  write(at("bad/domain"), kDomain);
  for (const std::string& text :
       {std::string("[org/example/app]\ncount=uint32 7\nlist=[\n"), std::string("count=uint32 7\n"),
        std::string("[org/example/app]\ncount=uint32 7\n[/]\nx\n"),
        std::string("[org/example/app]\ncount=uint32 7\n[org//x]\ny=1\n"),
        std::string("[org/example/app]\ncount=uint32 7\nx=\n"),
        "[org/example/app]\ncount=uint32 7\nx=" + std::string(100'000, '[') + "\n",
        std::string("\xFF\xFE\0\0", 4)}) {
    write(at("bad/settings.dconf"), text);
    EXPECT_THAT(fails({"restore", at("bad")}), HasSubstr(" is damaged: "));
  }
  EXPECT_EQ(dump(), "");
}

TEST_F(DefaultsToolTest, ABackupThatNamesNoApplicationIsNotRestored) {
  for (const std::string name : {"../../x", "org", "", "org.example.App\n"}) {
    write(at("bad/domain"), name);
    write(at("bad/preferences.plist"), "<plist><dict/></plist>");
    EXPECT_THAT(fails({"restore", at("bad")}), HasSubstr("it names no application."));
  }
  EXPECT_FALSE(fs::exists(home_.configHome() + "/tervano"));
}

// Locks.

TEST_F(DefaultsToolTest, LockedSettingsAreNamedAndTheRestIsReset) {
  load("[org/example/app]\ncount=uint32 7\ngreeting='mine'\n");
  lock({"/org/example/app/greeting", "/org/example/app/list"});
  const auto outcome = start({"delete", kDomain});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "tervano-defaults: Locked settings could not be reset: /org/example/app/greeting.\n");
  EXPECT_NE(folderIn(outcome.output), "");
  EXPECT_EQ(get(kDomain, "count"), "uint32 3\n");
  home_.setVariable("DCONF_PROFILE", std::nullopt);
  EXPECT_EQ(dump(), "[org/example/app]\ngreeting='mine'\n");
}

TEST_F(DefaultsToolTest, OnlyLockedSettingsMakeNoBackup) {
  load("[org/example/app]\ngreeting='mine'\n");
  lock({"/org/example/app/greeting"});
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("Locked settings could not be reset: "));
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, ALockThatHidesNoValueOfTheUserIsNoFailure) {
  load("[org/example/app]\ncount=uint32 7\n");
  lock({"/org/example/app/greeting"});
  EXPECT_NE(deleted(), "");
  EXPECT_EQ(get(kDomain, "greeting"), "'from the system'\n");
}

TEST_F(DefaultsToolTest, SettingsThatHaveBeenLockedMeanwhileAreNamedByRestore) {
  load("[org/example/app]\ncount=uint32 7\ngreeting='mine'\n");
  const std::string folder = deleted();
  lock({"/org/example/app/greeting"});
  EXPECT_EQ(fails({"restore", folder}),
            "tervano-defaults: Locked settings could not be restored: "
            "/org/example/app/greeting.\n");
  EXPECT_EQ(get(kDomain, "count"), "uint32 7\n");
}

// The bus and the service.

TEST_F(DefaultsToolTest, WithoutABusTheSettingsStayAndASentenceTellsWhy) {
  load("[org/example/app]\ncount=uint32 7\n");
  {
    const NoBus none;
    EXPECT_THAT(fails({"delete", kDomain}),
                HasSubstr("The settings of org.example.App could not be reset: "));
  }
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, WithoutTheServiceTheSettingsStayAndASentenceTellsWhy) {
  load("[org/example/app]\ncount=uint32 7\n");
  {
    const PrivateBus empty;
    EXPECT_THAT(fails({"delete", kDomain}),
                AllOf(HasSubstr("could not be reset: "), HasSubstr("ca.desrt.dconf")));
  }
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, WithoutABusThePreferencesAreResetAllTheSame) {
  load("[org/example/app]\ncount=uint32 7\n");
  setPreference("x", 1);
  {
    const NoBus none;
    const auto outcome = start({"delete", kDomain});
    EXPECT_EQ(outcome.status, 1);
    expectOneSentence(outcome.errors);
    EXPECT_NE(folderIn(outcome.output), "");
  }
  EXPECT_TRUE(preference("x").isNull());
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
}

TEST_F(DefaultsToolTest, ABusThatEndsInTheMiddleIsASentence) {
  load("[org/example/app]\ncount=uint32 7\n");
  auto mute = std::make_unique<PrivateBus>();
  {
    const FakeBusService service(
        mute->address(), "ca.desrt.dconf", "/ca/desrt/dconf/Writer/user", "ca.desrt.dconf.Writer",
        "<node><interface name=\"ca.desrt.dconf.Writer\"><method name=\"Change\">"
        "<arg name=\"blob\" direction=\"in\" type=\"ay\"/>"
        "<arg name=\"tag\" direction=\"out\" type=\"s\"/></method></interface></node>",
        [](const FakeBusService::Call&) { return nullptr; });
    auto tool = startProgram("/bin/sh",
                             {"-c", "exec \"$0\" delete \"$1\" 2>&1", TERVANO_DEFAULTS, kDomain});
    ASSERT_TRUE(waitUntil([&] { return !service.calls().empty(); }));
    mute->kill();
    EXPECT_THAT(tool.hear().value_or(""), StartsWith("Backed up to "));
    EXPECT_THAT(tool.hear().value_or(""),
                StartsWith("tervano-defaults: The settings of org.example.App could not be reset"));
    EXPECT_EQ(tool.waitForExit(), 1);
  }
  mute.reset();
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
}

TEST_F(DefaultsToolTest, AServiceThatWritesElsewhereIsNoSuccess) {
  load("[org/example/app]\ncount=uint32 7\n");
  const std::string before = dump();
  {
    const std::string configHome = home_.configHome();
    home_.setVariable("XDG_CONFIG_HOME", at("elsewhere"));
    const PrivateBus other(
        std::map<std::string, std::string>{{"ca.desrt.dconf", "/usr/libexec/dconf-service"}});
    home_.setVariable("XDG_CONFIG_HOME", configHome);
    const auto outcome = start({"delete", kDomain});
    EXPECT_EQ(outcome.status, 1);
    expectOneSentence(outcome.errors);
    EXPECT_THAT(outcome.errors, HasSubstr("the change of /org/example/app/count did not last"));
  }
  EXPECT_EQ(dump(), before);
}

TEST_F(DefaultsToolTest, ADeadBusIsASentence) {
  load("[org/example/app]\ncount=uint32 7\n");
  const std::string folder = deleted();
  bus_->kill();
  EXPECT_THAT(fails({"restore", folder}),
              HasSubstr("The settings of org.example.App could not be restored: "));
}

TEST_F(DefaultsToolTest, WhereSettingsAreKeptElsewhereTheyAreLeftWithASentence) {
  load("[org/example/app]\ncount=uint32 7\n");
  home_.setVariable("GSETTINGS_BACKEND", "keyfile");
  EXPECT_THAT(
      fails({"delete", kDomain}),
      HasSubstr("this session does not keep settings in dconf but in GKeyfileSettingsBackend."));
  EXPECT_THAT(fails({"delete", "org.example.Untouched"}), HasSubstr("does not keep settings in"));
  home_.setVariable("GSETTINGS_BACKEND", std::nullopt);
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
}

// Preferences of our own stores.

TEST_F(DefaultsToolTest, ThePreferencesOfTheDomainAreRemovedAndRestored) {
  const Value list(Value::Array{Value(1), Value("two"), Value(Value::Dictionary{{"k", 0.5}})});
  setPreference("list", list);
  setPreference("flag", true);
  const std::string folder = deleted();
  EXPECT_FALSE(fs::exists(preferences()));
  EXPECT_TRUE(preference("list").isNull());
  restored(folder);
  EXPECT_EQ(preference("list"), list);
  EXPECT_EQ(preference("flag"), Value(true));
  struct stat status {};
  ASSERT_EQ(stat(preferences().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(DefaultsToolTest, PreferencesNeedNoBus) {
  const NoBus none;
  setPreference("x", 1, "com.only.Preferences");
  const std::string folder = deleted("com.only.Preferences");
  EXPECT_TRUE(preference("x", "com.only.Preferences").isNull());
  restored(folder);
  EXPECT_EQ(preference("x", "com.only.Preferences"), Value(1));
}

TEST_F(DefaultsToolTest, SettingsAndPreferencesGoIntoOneBackup) {
  load("[org/example/app]\ncount=uint32 7\n");
  setPreference("x", 1);
  const std::string folder = deleted();
  EXPECT_EQ(dump(), "");
  EXPECT_TRUE(preference("x").isNull());
  restored(folder);
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
  EXPECT_EQ(preference("x"), Value(1));
}

TEST_F(DefaultsToolTest, PreferencesOfOtherNamesAreNotTouched) {
  setPreference("x", 1);
  for (const auto* suite : {"org.example.app", "org.example.App.other", "org.example.Apple"}) {
    setPreference("x", 2, suite);
  }
  EXPECT_NE(deleted(), "");
  for (const auto* suite : {"org.example.app", "org.example.App.other", "org.example.Apple"}) {
    EXPECT_EQ(preference("x", suite), Value(2)) << suite;
  }
}

TEST_F(DefaultsToolTest, ALongNameInAnyScriptHasItsPreferencesAndItsBackup) {
  std::string name = "org.example.";
  while (name.size() < 250) name += "\xC3\xB6";
  setPreference("x", 1, name);
  const std::string folder = deleted(name);
  EXPECT_TRUE(preference("x", name).isNull());
  restored(folder);
  EXPECT_EQ(preference("x", name), Value(1));
}

TEST_F(DefaultsToolTest, RestoringKeepsPreferencesThatHaveBeenSetSinceThen) {
  setPreference("a", 1);
  setPreference("b", 1);
  const std::string folder = deleted();
  setPreference("b", 2);
  setPreference("c", 2);
  restored(folder);
  EXPECT_EQ(preference("a"), Value(1));
  EXPECT_EQ(preference("b"), Value(1));
  EXPECT_EQ(preference("c"), Value(2));
}

TEST_F(DefaultsToolTest, DamagedPreferencesAreBackedUpAsTheyAreAndNotRestored) {
  write(preferences(), "bplist00 damaged");
  const std::string folder = deleted();
  EXPECT_FALSE(fs::exists(preferences()));
  EXPECT_EQ(contentsOf(folder + "/preferences.plist"), "bplist00 damaged");
  EXPECT_THAT(fails({"restore", folder}),
              HasSubstr("Could not read the preferences in the backup"));
  EXPECT_FALSE(fs::exists(preferences()));
}

TEST_F(DefaultsToolTest, NothingIsMergedIntoDamagedPreferences) {
  setPreference("x", 1);
  const std::string folder = deleted();
  write(preferences(), "bplist00 damaged");
  EXPECT_THAT(fails({"restore", folder}), HasSubstr("Could not merge into the preferences"));
  EXPECT_EQ(contentsOf(preferences()), "bplist00 damaged");
}

TEST_F(DefaultsToolTest, NothingIsResetWhenThePreferencesCannotBeRead) {
  load("[org/example/app]\ncount=uint32 7\n");
  setPreference("x", 1);
  fs::resize_file(preferences(), std::uintmax_t{1} << 40);
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("Nothing was reset: Could not read"));
  fs::remove(preferences());
  ASSERT_EQ(mkfifo(preferences().c_str(), 0600), 0);
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("Nothing was reset: Could not read"));
  fs::remove(preferences());
  fs::create_directory(preferences());
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("Nothing was reset: Could not read"));
  EXPECT_EQ(dump(), "[org/example/app]\ncount=uint32 7\n");
  EXPECT_THAT(backups(), IsEmpty());
}

TEST_F(DefaultsToolTest, ALinkToPreferencesIsRemovedAndNotWhatItPointsTo) {
  setPreference("x", 1);
  fs::rename(preferences(), at("dotfiles.plist"));
  fs::create_symlink(at("dotfiles.plist"), preferences());
  const std::string folder = deleted();
  EXPECT_FALSE(fs::is_symlink(preferences()));
  EXPECT_TRUE(fs::exists(at("dotfiles.plist")));
  restored(folder);
  EXPECT_EQ(preference("x"), Value(1));
}

TEST_F(DefaultsToolTest, ALockFileThatIsALinkIsNotFollowed) {
  setPreference("x", 1);
  const std::string lockPath = PlistDefaultsStores::lockPathForSuiteName(kDomain);
  fs::remove(lockPath);
  fs::create_symlink(at("victim"), lockPath);
  EXPECT_THAT(fails({"delete", kDomain}), HasSubstr("Nothing was reset: Could not lock"));
  EXPECT_FALSE(fs::exists(at("victim")));
  EXPECT_TRUE(fs::exists(preferences()));
}

TEST_F(DefaultsToolTest, AStoreThatIsWritingIsWaitedFor) {
  setPreference("x", 1);
  const Descriptor held(
      open(PlistDefaultsStores::lockPathForSuiteName(kDomain).c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  auto tool = startProgram(TERVANO_DEFAULTS, {"delete", kDomain});
  const std::regex waiting("-> FLOCK +ADVISORY +WRITE " + std::to_string(tool.pid()) + " ");
  ASSERT_TRUE(waitUntil([&] { return std::regex_search(contentsOf("/proc/locks"), waiting); }));
  const Data bytes = binaryDataWithPropertyList(Value::Dictionary{{"x", 2}});
  write(preferences(), {bytes.begin(), bytes.end()});
  ASSERT_EQ(flock(held.get(), LOCK_UN), 0);
  const auto line = tool.hear();
  EXPECT_EQ(tool.waitForExit(), 0);
  restored(folderIn(line.value_or("") + "\n"));
  EXPECT_EQ(preference("x"), Value(2));
}

}  // namespace
}  // namespace tervano::test
