#include "tests/resources/default_script_test.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

namespace tervano::test {

namespace fs = std::filesystem;

namespace {

constexpr char kBash[] = "/bin/bash";

std::vector<std::string> splitAtNul(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find('\0', begin)) != std::string::npos; begin = end + 1) {
    parts.push_back(text.substr(begin, end - begin));
  }
  return parts;
}

std::vector<std::string> scriptArguments(const std::string& title,
                                         const std::vector<std::string>& paths) {
  std::vector<std::string> words{scriptPath(title)};
  words.insert(words.end(), paths.begin(), paths.end());
  return words;
}

}  // namespace

const std::vector<std::string>& hostileNames() {
  static const std::vector<std::string> names{
      "-",
      "-rf",
      "--",
      "   ",
      "new\nline",
      "line end\n",
      "\ttab\r",
      "quote's and \"quotes\"",
      "$(touch pwned)",
      "`touch pwned`",
      "$HOME & <b> ; | %s %n",
      "back\\slash\\n",
      "*?[x]",
      "~",
      "#",
      "bad\xff\xe2\x82",
      "\x80\xc3.bad",
      "ünïcödé ﬁ 漢字",
      ".hidden",
      "a.b.c",
      "dot.",
      "...",
      std::string(255, 'l'),
  };
  return names;
}

std::vector<std::string> scriptTitles() {
  std::vector<std::string> titles;
  for (const auto& entry : fs::directory_iterator(TERVANO_RESOURCES "/Default Scripts")) {
    if (entry.path().extension() == ".sh") titles.push_back(entry.path().stem().string());
  }
  std::sort(titles.begin(), titles.end());
  return titles;
}

std::string scriptPath(const std::string& title) {
  return TERVANO_RESOURCES "/Default Scripts/" + title + ".sh";
}

DefaultScriptTest::DefaultScriptTest()
    : files_(home_.folder("files of \"Bob\" $HOME\n")), programs_(home_.folder("programs")) {
  home_.home().setVariable("PATH", programs_ + ":/usr/bin:/bin");
  home_.home().setVariable("TERMINAL", std::nullopt);
  home_.home().setVariable("NOTIFIED", home_.path() + "/notified");
  // The text is the last argument; what comes before it is looked at where it is really shown.
  install("notify-send", R"(printf '%s\0' "${@: -1}" >>"$NOTIFIED")");
}

std::string DefaultScriptTest::make(const std::string& name, const std::string& content) const {
  const std::string path = at(name);
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string DefaultScriptTest::makeFolder(const std::string& name) const {
  fs::create_directories(at(name));
  return at(name);
}

std::vector<std::string> DefaultScriptTest::makeHostile() const {
  std::vector<std::string> paths;
  for (const auto& name : hostileNames()) paths.push_back(make(name, name));
  return paths;
}

ProgramOutcome DefaultScriptTest::run(const std::string& title,
                                      const std::vector<std::string>& paths) const {
  ProgramStart start;
  start.path = kBash;
  start.arguments = scriptArguments(title, paths);
  start.folder = homePath();
  start.seconds = 60;
  return runProgram(start);
}

ProgramOutcome DefaultScriptTest::runAsNobody(const std::string& title,
                                              const std::vector<std::string>& paths,
                                              bool give) const {
  if (give) giveToNobody(homePath());
  ProgramStart start;
  start.path = kBash;
  start.arguments = scriptArguments(title, paths);
  // The build folder may lie where that user has no way: the script's text comes from the home.
  const std::string copy = homePath() + "/Default Scripts";
  if (!exists(copy)) {
    fs::copy(TERVANO_RESOURCES "/Default Scripts", copy, fs::copy_options::recursive);
  }
  start.arguments[0] = copy + "/" + title + ".sh";
  start.folder = homePath();
  start.prepare = becomeNobody;
  return runProgram(start);
}

std::vector<std::string> DefaultScriptTest::runOnSmallDisk(const std::string& title, int kibibytes,
                                                           const std::vector<std::string>& kept,
                                                           const std::vector<std::string>& names,
                                                           ProgramOutcome* outcome) const {
  const std::string disk = makeFolder("disk");
  const std::string options = "size=" + std::to_string(kibibytes) + "k";
  ProgramStart start;
  start.path = kBash;
  start.arguments = {"-c",
                     "count=$2; disk=$3; shift 3; cp -a -- \"${@:1:count}\" \"$disk\"; "
                     "shift \"$count\"; /bin/bash \"$0\" \"$@\"; status=$?; "
                     "find \"$disk\" -mindepth 1 -printf '%P\\0'; exit $status",
                     scriptPath(title),
                     "",
                     std::to_string(kept.size()),
                     disk};
  start.arguments.insert(start.arguments.end(), kept.begin(), kept.end());
  for (const auto& name : names) start.arguments.push_back(disk + "/" + name);
  start.prepare = [disk, options] {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", disk.c_str(), "tmpfs", 0, options.c_str()) == 0;
  };
  *outcome = runProgram(start);
  auto left = splitAtNul(outcome->output);
  outcome->output.clear();
  std::sort(left.begin(), left.end());
  return left;
}

std::string DefaultScriptTest::output(const std::string& program,
                                      const std::vector<std::string>& words,
                                      const std::string& folder) const {
  ProgramStart start;
  start.path = program;
  start.arguments = words;
  start.folder = folder;
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.status, 0) << program << ": " << outcome.errors;
  return outcome.output;
}

void DefaultScriptTest::install(const std::string& name, const std::string& script) const {
  const std::string path = programs_ + "/" + name;
  fs::remove(path);
  std::ofstream(path) << "#!/bin/bash\n" << script << "\n";
  fs::permissions(path, fs::perms::owner_all | fs::perms::group_exec | fs::perms::group_read |
                            fs::perms::others_exec | fs::perms::others_read);
}

void DefaultScriptTest::leaveOnly(const std::vector<std::string>& programs) {
  std::vector<std::string> all{"basename", "cat", "chmod",   "cp",    "cut",    "date", "df",
                               "du",       "env", "find",    "grep",  "gzip",   "head", "id",
                               "ln",       "ls",  "mkdir",   "mv",    "printf", "rm",   "realpath",
                               "rmdir",    "sed", "setsid",  "sleep", "sort",   "stat", "sha256sum",
                               "tail",     "tar", "timeout", "touch", "tr",     "wc",   "xargs"};
  all.insert(all.end(), programs.begin(), programs.end());
  for (const auto& name : all) {
    if (exists(programs_ + "/" + name)) continue;
    fs::create_symlink("/usr/bin/" + name, programs_ + "/" + name);
  }
  home().setVariable("PATH", programs_);
}

std::vector<std::string> DefaultScriptTest::notifications() const {
  const std::string kept = homePath() + "/notified";
  if (!exists(kept)) return {};
  return splitAtNul(contentsOf(kept));
}

std::vector<std::string> DefaultScriptTest::tree() const {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(files_)) {
    std::string path = entry.path().string().substr(files_.size() + 1);
    if (entry.is_directory() && !entry.is_symlink()) path += '/';
    paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

void DefaultScriptTest::expectSilent(const ProgramOutcome& outcome) const {
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(notifications(), testing::IsEmpty());
}

void DefaultScriptTest::expectProblem(const ProgramOutcome& outcome, const std::string& title,
                                      const std::string& sentence) const {
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, title + ": " + sentence + "\n");
  EXPECT_THAT(notifications(), testing::ElementsAre(title + ": " + sentence));
}

}  // namespace tervano::test
