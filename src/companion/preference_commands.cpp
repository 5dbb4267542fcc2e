#include <iostream>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/value_json.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

namespace {

void requireName(const std::string& name) {
  if (TVUserDefaults::create()->preferenceNamed(name)) return;
  throw UsageError(
      tr("There is no preference \"{1}\"; \"tervano prefs\" lists them.", printable(name)));
}

int showAll(bool asJson) {
  const auto userDefaults = TVUserDefaults::create();
  nlohmann::ordered_json json;
  for (const auto& name : TVUserDefaults::preferenceNames()) {
    const bool value = userDefaults->preferenceNamed(name).value();
    if (asJson) {
      json[name] = value;
    } else {
      std::cout << name << " " << (value ? "yes" : "no") << "\n";
    }
  }
  if (asJson) std::cout << jsonText(json);
  return kExitSuccess;
}

int setPreference(const std::string& name, const std::string& word) {
  requireName(name);
  if (word != "yes" && word != "no") throw UsageError(tr("A preference is set to yes or no."));
  const bool value = word == "yes";
  TVUserDefaults::create()->setPreferenceNamed(name, value);
  if (TVUserDefaults::create()->preferenceNamed(name) != value) {
    throw CommandError(tr("The preference could not be saved."));
  }
  return kExitSuccess;
}

int prefs(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  const auto& positional = arguments.positional();
  if (positional.empty()) return showAll(arguments.has("json"));
  if (arguments.has("json")) throw UsageError(tr("--json goes with all preferences only."));
  if (positional[0] == "get") {
    arguments.requirePositional(2, 2, tr("The name of a preference"));
    requireName(positional[1]);
    std::cout << (TVUserDefaults::create()->preferenceNamed(positional[1]).value() ? "yes" : "no")
              << "\n";
    return kExitSuccess;
  }
  if (positional[0] == "set") {
    arguments.requirePositional(3, 3, tr("The name or the value of a preference"));
    return setPreference(positional[1], positional[2]);
  }
  throw UsageError(tr("\"{1}\" is neither get nor set.", printable(positional[0])));
}

}  // namespace

std::vector<Command> preferenceCommands() {
  return {{{"prefs",
            trMark("show and set preferences"),
            {"[--json]", "get NAME", "set NAME yes|no"},
            {trMark("A change is seen by the file managers at their next menu.")},
            {{"--json", trMark("All preferences as one object of booleans.")}}},
           prefs}};
}

}  // namespace tervano
