#include <algorithm>
#include <iostream>
#include <iterator>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/finding.h"
#include "companion/value_json.h"
#include "platform/linux/loadable_module.h"

namespace tervano {

namespace {

Sentence wordOf(Health health) {
  switch (health) {
    case Health::ok:
      return tr("OK");
    case Health::missing:
      return tr("missing");
    case Health::broken:
      break;
  }
  return tr("broken");
}

nlohmann::ordered_json jsonOfFinding(const Finding& finding) {
  nlohmann::ordered_json json;
  json["what"] = finding.what.english();
  json["state"] = wordOf(finding.health).english();
  json["needed"] = finding.needed;
  json["detail"] = finding.detail.english();
  json["mend"] = nullptr;
  if (!finding.mend.empty()) json["mend"] = finding.mend.english();
  return json;
}

void printFinding(const Finding& finding) {
  constexpr std::size_t kStateColumns = 9;
  std::string state = wordOf(finding.health);
  state.resize(std::max(state.size(), kStateColumns - 1), ' ');
  const bool isIdle = !finding.needed && finding.health != Health::ok;
  std::cout << state << " "
            << (isIdle
                    ? tr("{1} (not needed): {2}", finding.what, printable(finding.detail.shown()))
                    : tr("{1}: {2}", finding.what, printable(finding.detail.shown())));
  if (!finding.mend.empty()) std::cout << " " << printable(finding.mend.shown());
  std::cout << "\n";
}

std::vector<Finding> allFindings() {
  std::vector<Finding> all;
  for (const auto look :
       {installationFindings, fileManagerFindings, desktopFindings, userFindings, helperFindings}) {
    auto findings = look();
    std::move(findings.begin(), findings.end(), std::back_inserter(all));
  }
  return all;
}

int tryModule(const std::string& path, const Arguments& arguments) {
  const std::string why = whyModuleIsUnusable(absolutePath(path), arguments.positional());
  if (!why.empty()) throw CommandError(why);
  return kExitSuccess;
}

int doctor(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"module"}, {"json"}});
  if (const auto module = arguments.value("module")) return tryModule(*module, arguments);
  arguments.requirePositional(0, 0, "");
  const auto findings = allFindings();
  const auto bad = std::count_if(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.needed && finding.health != Health::ok;
  });
  if (arguments.has("json")) {
    auto json = nlohmann::ordered_json::array();
    for (const auto& finding : findings) json.push_back(jsonOfFinding(finding));
    std::cout << jsonText(json);
  } else {
    for (const auto& finding : findings) printFinding(finding);
  }
  std::cout << std::flush;
  if (bad == 0) return kExitSuccess;
  throw CommandError(trn("One part that is needed does not work",
                         "{1} parts that are needed do not work", static_cast<std::size_t>(bad)));
}

}  // namespace

std::vector<Command> doctorCommands() {
  return {
      {{"doctor",
        trMark("tell whether each part works, and how to mend it"),
        {"[--json]", "--module FILE [FUNCTION...]"},
        {trMark(
             "One line for each part: OK, missing or broken, what was found, and how to mend it. "
             "It "
             "looks at what comes with the program, at the file managers and the modules that they "
             "load, at the handler of the URLs, at the session bus and what it starts, at the "
             "list, "
             "and at the programs that scripts use. It works without a bus and without a display, "
             "and "
             "from a build tree."),
         trMark("The status is 0 when everything that is needed works, else 1. Parts that are not "
                "needed "
                "are marked: nobody needs every file manager, but one must show the menu.")},
        {{"--json",
          trMark(
              "An array of objects with \"what\", \"state\" (\"OK\", \"missing\" or \"broken\"), "
              "\"needed\", \"detail\" and \"mend\" (null when there is nothing to mend).")},
         {"--module FILE", trMark("Only loads this module of a file manager and looks for the "
                                  "functions in it, as every "
                                  "module is tried by a process of its own.")}}},
       doctor},
  };
}

}  // namespace tervano
