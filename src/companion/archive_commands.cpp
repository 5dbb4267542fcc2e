#include <iostream>

#include "archive/inspection.h"
#include "archive/platform_exception.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/value_json.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {

namespace {

// A value as indented lines: one per entry of a dictionary or array.
void printValue(const Value& value, const std::string& margin, std::ostream& out) {
  if (const auto* array = value.getIf<Value::Array>()) {
    out << (array->empty() ? " (" + tr("empty").shown() + ")\n" : "\n");
    for (const auto& entry : *array) {
      out << margin << "-";
      printValue(entry, margin + "  ", out);
    }
  } else if (const auto* dictionary = value.getIf<Value::Dictionary>()) {
    out << (dictionary->empty() ? " (" + tr("empty").shown() + ")\n" : "\n");
    for (const auto& [key, entry] : *dictionary) {
      out << margin << printable(key) << ":";
      printValue(entry, margin + "  ", out);
    }
  } else if (const auto* data = value.getIf<DataPtr>()) {
    out << " <" << trn("{1} byte", "{1} bytes", (*data)->size()) << ">\n";
  } else if (const auto* text = value.getIf<std::string>()) {
    out << " \"" << printable(*text) << "\"\n";
  } else {
    std::string json = jsonText(jsonOfValue(value));
    json.pop_back();
    out << " " << json << "\n";
  }
}

int archive(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  const auto& positional = arguments.positional();
  if (positional.empty() || positional[0] != "dump") {
    throw UsageError(tr("The command is \"{1}\".", "tervano archive dump FILE"));
  }
  arguments.requirePositional(2, 2, tr("The file"));
  std::optional<Error> error;
  const auto bytes = platform().fileManager->contentsAtPath(absolutePath(positional[1]), &error);
  if (!bytes) throw CommandError(error->message);
  try {
    const Value value = plainValueOfKeyedArchive(*bytes);
    if (arguments.has("json")) {
      std::cout << jsonText(jsonOfValue(value));
    } else {
      printValue(value, "", std::cout);
    }
  } catch (const PlatformException& exception) {
    throw CommandError(
        tr("{1} is no readable keyed archive: {2}", printable(positional[1]), exception.reason()));
  }
  return kExitSuccess;
}

}  // namespace

std::vector<Command> archiveCommands() {
  return {
      {{"archive",
        trMark("show what a keyed archive holds"),
        {"dump FILE [--json]"},
        {trMark("Any keyed archive in a property list, also one of classes that are unknown here. "
                "Every object is shown with its class under \"$class\".")},
        {{"--json", trMark("As JSON; data is Base64 text.")}}},
       archive}};
}

}  // namespace tervano
