#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/url.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"
#include "tests/support/program.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

// Names of files that a shell, a URI, a list or a line of text would change.
inline const std::vector<std::string> kHostileNames{
    "a b",         "it's \"x\"",  "$(touch x)`y`", "%f %U %%", "\xff\xfe", "line\nbreak", "-rf",
    "back\\slash", "a,b;c&d#e?f", "tab\there",     "\xc3\xa9", "*?[a]",    "%41",         "'"};

inline constexpr char kApplicationXML[] = R"(<node><interface name="org.freedesktop.Application">
  <method name="Activate"><arg type="a{sv}" direction="in"/></method>
  <method name="Open"><arg type="as" direction="in"/><arg type="a{sv}" direction="in"/></method>
  </interface></node>)";

// The program of the second process.
[[nodiscard]] std::string workspacePeerPath();

// A desktop of the test's own: applications that record how they were started, and a second
// process with a workspace, since GLib looks for the desktop's folders once per process.
class WorkspaceFixture : public testing::Test {
 protected:
  // How a recording program was started.
  struct Run {
    std::string program;
    std::string folder;
    std::string activationToken;
    std::string startupIdentifier;
    std::vector<std::string> arguments;
  };

  WorkspaceFixture() {
    std::filesystem::create_directories(applications());
    std::filesystem::create_directories(runsFolder());
    std::filesystem::create_directories(platform_.home().path() + "/bin");
    std::filesystem::create_directories(platform_.home().path() + "/files");
    // The machine's own applications are nobody's business here.
    platform_.home().setVariable("XDG_DATA_DIRS", platform_.home().path() + "/nothing");
    platform_.home().setVariable("XDG_CONFIG_DIRS", platform_.home().path() + "/nothing");
    platform_.home().setVariable("XDG_CURRENT_DESKTOP", std::nullopt);
    platform_.home().setVariable("XDG_ACTIVATION_TOKEN", std::nullopt);
    platform_.home().setVariable("DESKTOP_STARTUP_ID", std::nullopt);
  }

  std::string applications() { return platform_.home().dataHome() + "/applications"; }
  std::string runsFolder() { return platform_.home().path() + "/runs"; }

  // A program of that name that records each of its runs in one step.
  std::string recorder(const std::string& name = "recorder") {
    const std::string path = platform_.home().path() + "/bin/" + name;
    std::ofstream(path) << "#!/bin/sh\nprintf '%s\\0' \"$0\" \"$PWD\" \"$XDG_ACTIVATION_TOKEN\" "
                           "\"$DESKTOP_STARTUP_ID\" \"$@\" > '"
                        << runsFolder() << "/.'$$\nmv '" << runsFolder() << "/.'$$ '"
                        << runsFolder() << "/'$$\n";
    chmod(path.c_str(), 0755);
    return path;
  }

  // Writes a desktop entry; answers its path.
  std::string entry(const std::string& identifier, const std::string& lines) {
    const std::string path = applications() + "/" + identifier + ".desktop";
    std::ofstream(path) << "[Desktop Entry]\nType=Application\nName=Odd Handler\n" << lines;
    return path;
  }

  // The same, for the default handler of a type.
  std::string install(const std::string& identifier, const std::string& lines,
                      const std::string& type = "x-scheme-handler/tervano") {
    const auto path = entry(identifier, "MimeType=" + type + ";\n" + lines);
    defaults_ += type + "=" + identifier + ".desktop\n";
    std::ofstream(platform_.home().configHome() + "/mimeapps.list") << "[Default Applications]\n"
                                                                    << defaults_;
    return path;
  }

  // Makes a file of that name and contents; answers its path.
  std::string file(const std::string& name, const std::string& contents = "x") {
    const std::string path = platform_.home().path() + "/files/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << contents;
    return path;
  }

  std::vector<std::string> hostileFiles() {
    std::vector<std::string> paths;
    for (const auto& name : kHostileNames) paths.push_back(file(name, "contents of " + name));
    return paths;
  }

  [[nodiscard]] static ChildProcess startPeer(const std::vector<std::string>& arguments = {}) {
    return startProgram(workspacePeerPath(), arguments);
  }

  static std::string openCommand(const std::string& application,
                                 const std::vector<std::string>& paths) {
    std::string line = "open-with " + asWord(Url::fileURLWithPath(application).absoluteString());
    for (const auto& path : paths)
      line += " " + asWord(Url::fileURLWithPath(path).absoluteString());
    return line;
  }

  // The peer's next line, while the test's own services answer.
  static std::string nextLine(ChildProcess& peer) {
    std::optional<std::string> line;
    const bool heard = waitUntil([&] {
      line = peer.hear(0);
      return line.has_value();
    });
    return heard ? *line : "the peer fell silent";
  }

  // What the peer says before its "done". Its answer and its log come from two threads.
  static std::vector<std::string> linesUntilDone(ChildProcess& peer) {
    std::vector<std::string> lines;
    for (auto line = nextLine(peer); line != "done"; line = nextLine(peer)) {
      lines.push_back(line);
      if (line == "the peer fell silent") break;
    }
    return lines;
  }

  // What the peer says to opening those files.
  static std::vector<std::string> opened(ChildProcess& peer, const std::string& application,
                                         const std::vector<std::string>& paths) {
    peer.say(openCommand(application, paths));
    return linesUntilDone(peer);
  }

  // Every run there has been, in no order; waits for `count` of them.
  std::vector<Run> runs(std::size_t count) {
    std::vector<std::filesystem::path> files;
    EXPECT_TRUE(waitUntil([&] {
      files.clear();
      for (const auto& file : std::filesystem::directory_iterator(runsFolder())) {
        if (!file.path().filename().string().starts_with('.')) files.push_back(file.path());
      }
      return files.size() >= count;
    }));
    std::vector<Run> runs;
    for (const auto& file : files) runs.push_back(readRun(file));
    return runs;
  }

  // The only run; one without a program when there is none.
  Run onlyRun() {
    const auto all = runs(1);
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? Run{} : all.front();
  }

  bool hasRun() const {
    return std::filesystem::directory_iterator(platform_.home().path() + "/runs") !=
           std::filesystem::directory_iterator();
  }

  ScopedPlatform platform_;

 private:
  static Run readRun(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::vector<std::string> words;
    for (std::string word; std::getline(stream, word, '\0');) words.push_back(word);
    constexpr std::size_t kFixed = 4;
    if (words.size() < kFixed) return {};
    return {words[0], words[1], words[2], words[3], {words.begin() + kFixed, words.end()}};
  }

  std::string defaults_;
};

}  // namespace tervano::test
