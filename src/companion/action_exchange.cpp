#include "companion/action_exchange.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <system_error>

#include "actions/tv_apple_script_action.h"
#include "actions/tv_bundled_script_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_new_file_action.h"
#include "actions/tv_open_faves_action.h"
#include "actions/tv_open_with_app_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_send_via_email_action.h"
#include "archive/archiver.h"
#include "archive/coding.h"
#include "archive/inspection.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/unarchiver.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/value_json.h"
#include "model/action_list.h"
#include "model/tv_action_group.h"
#include "platform/file_manager.h"
#include "platform/linux/application_entry.h"
#include "platform/platform.h"

namespace tervano {

namespace {

using ExchangeJson = nlohmann::ordered_json;

constexpr char kClassKey[] = "class";
constexpr char kDataKey[] = "$data";
constexpr char kUrlKey[] = "$url";
constexpr std::uintmax_t kLongestShownScript = std::uintmax_t{1} << 20;
constexpr int kMaximumJsonDepth = 64;

ExchangeJson jsonOfArchived(const Value& value) {
  if (const auto* url = value.getIf<Url>()) return {{kUrlKey, url->absoluteString()}};
  if (const auto* data = value.getIf<DataPtr>()) return {{kDataKey, base64OfData(**data)}};
  if (const auto* array = value.getIf<Value::Array>()) {
    auto json = ExchangeJson::array();
    for (const auto& entry : *array) json.push_back(jsonOfArchived(entry));
    return json;
  }
  if (const auto* dictionary = value.getIf<Value::Dictionary>()) {
    auto json = ExchangeJson::object();
    if (const auto* name = value.find("$class")) json[kClassKey] = jsonOfArchived(*name);
    for (const auto& [key, entry] : *dictionary) {
      if (key != "$class") json[key] = jsonOfArchived(entry);
    }
    return json;
  }
  return jsonOfValue(value);
}

// Members stand for themselves, so that what they share, such as an icon, is written with each.
ExchangeJson jsonOfExported(const std::shared_ptr<TVAction>& action) {
  auto archived = action;
  const auto group = std::dynamic_pointer_cast<TVActionGroup>(action);
  const bool hasMembers = group != nullptr && group->workingActionsArray();
  if (hasMembers) {
    archived = action->copy();
    static_cast<TVActionGroup&>(*archived).updateActions(ActionList());
  }
  auto json = jsonOfArchived(plainValueOfKeyedArchive(
      Archiver::archivedDataWithRootObject(archived, *platform().classRegistry)));
  if (!hasMembers) return json;
  for (const auto& member : *group->workingActionsArray()) {
    json["actions"].push_back(jsonOfExported(member));
  }
  return json;
}

// An object of a JSON file, archived under the class that it names, so that the one reader of
// archives decides what comes of it.
class JsonObject : public Coding {
 public:
  JsonObject(std::string name, Value::Dictionary fields)
      : name_(std::move(name)), fields_(std::move(fields)) {}

  std::string_view className() const override { return name_; }
  void initWithCoder(Unarchiver& /*coder*/) override {}
  void encodeWithCoder(Archiver& coder) const override {
    for (const auto& [key, value] : fields_) {
      if (const auto* flag = value.getIf<bool>()) {
        coder.encodeBool(*flag, key);
      } else if (const auto* integer = value.getIf<std::int64_t>()) {
        coder.encodeInteger(*integer, key);
      } else if (const auto* real = value.getIf<double>()) {
        coder.encodeDouble(*real, key);
      } else {
        coder.encodeObject(value, key);
      }
    }
  }

 private:
  std::string name_;
  Value::Dictionary fields_;
};

Value archivableOfJson(const ExchangeJson& json, int depth) {
  if (depth > kMaximumJsonDepth) throw CommandError(tr("The objects are nested too deeply."));
  if (json.is_null()) return nullptr;
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_unsigned() && json.get<std::uint64_t>() > INT64_MAX) {
    throw CommandError(tr("A number is too large."));
  }
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number()) return json.get<double>();
  if (json.is_string()) return json.get<std::string>();
  if (json.is_array()) {
    Value::Array array;
    for (const auto& entry : json) array.push_back(archivableOfJson(entry, depth + 1));
    return array;
  }
  const auto textOf = [&json](const char* key) -> const std::string* {
    const auto found = json.find(key);
    return found == json.end() ? nullptr : found->get_ptr<const std::string*>();
  };
  if (const auto* text = textOf(kUrlKey)) return Url(*text);
  if (const auto* text = textOf(kDataKey)) {
    auto data = dataOfBase64(*text);
    if (!data) throw CommandError(tr("The text of a \"$data\" is no Base64."));
    return *std::move(data);
  }
  const auto* name = textOf(kClassKey);
  if (name == nullptr) throw CommandError(tr("An object does not name its class."));
  Value::Dictionary fields;
  for (const auto& [key, entry] : json.items()) {
    if (key != kClassKey) fields.emplace(key, archivableOfJson(entry, depth + 1));
  }
  return std::make_shared<JsonObject>(*name, std::move(fields));
}

// The bytes of the keyed archive that the file is, or that its JSON describes.
Data archiveOf(const Data& bytes) {
  const auto first = std::find_if(bytes.begin(), bytes.end(), [](std::uint8_t byte) {
    return byte != ' ' && byte != '\t' && byte != '\r' && byte != '\n';
  });
  if (first == bytes.end() || (*first != '[' && *first != '{')) return bytes;
  const auto json = ExchangeJson::parse(first, bytes.end(), nullptr, false);
  if (json.is_discarded()) throw CommandError(tr("The file begins like JSON, but is none."));
  return Archiver::archivedDataWithRootObject(archivableOfJson(json, 0), *platform().classRegistry);
}

const TVActionGroup* groupOf(const std::shared_ptr<TVAction>& action) {
  return dynamic_cast<const TVActionGroup*>(action.get());
}

// Every action, each group before its members.
void forEachAction(const ActionList& actions,
                   const std::function<void(const std::shared_ptr<TVAction>&)>& visit) {
  for (const auto& action : actions) {
    visit(action);
    const auto* group = groupOf(action);
    if (group == nullptr || !group->workingActionsArray()) continue;
    for (const auto& member : *group->workingActionsArray()) visit(member);
  }
}

std::string pathOf(const std::optional<Url>& url) {
  return url ? url->path() : tr("(nothing)").shown();
}

// The script is shown whole or not at all: in what is left out could be anything.
void appendScript(const std::string& path, ActionCommands& commands) {
  const auto& files = *platform().fileManager;
  if (!files.fileExistsAtPath(path)) {
    commands.lines.emplace_back(tr("that file is not here"));
    return;
  }
  std::error_code unknown;
  const auto size = std::filesystem::file_size(path, unknown);
  const bool isLong = !unknown && size > kLongestShownScript;
  const auto bytes = isLong ? std::nullopt : files.contentsAtPath(path);
  if (isLong || (bytes && bytes->size() > kLongestShownScript)) {
    commands.areWhole = false;
    commands.lines.emplace_back(
        tr("NOT SHOWN: that file is longer than a megabyte; a program such as \"less\" shows it"));
    return;
  }
  if (!bytes) {
    commands.lines.emplace_back(tr("that file cannot be read"));
    return;
  }
  std::istringstream text(std::string(bytes->begin(), bytes->end()));
  for (std::string line; std::getline(text, line);) commands.lines.push_back("| " + line);
}

// One object in several places becomes one for each of them. Groups have no groups in them.
void separate(ActionList& actions, std::set<const TVAction*>& seen) {
  for (auto& action : actions) {
    if (seen.contains(action.get())) action = action->copy();
    seen.insert(action.get());
    const auto group = std::dynamic_pointer_cast<TVActionGroup>(action);
    if (group == nullptr || !group->workingActionsArray()) continue;
    auto members = *group->workingActionsArray();
    separate(members, seen);
    group->updateActions(std::move(members));
  }
}

}  // namespace

ExchangeForm requireExchangeForm(const std::string& name) {
  if (name == "archive") return ExchangeForm::archive;
  if (name == "xml") return ExchangeForm::xml;
  if (name == "json") return ExchangeForm::json;
  throw UsageError(tr("The forms are archive, xml and json."));
}

Data exportedActions(const ActionList& actions, ExchangeForm form) {
  Data archive =
      Archiver::archivedDataWithRootObject(arrayOfActions(actions), *platform().classRegistry);
  switch (form) {
    case ExchangeForm::xml:
      return XMLDataWithPropertyList(propertyListWithData(archive));
    case ExchangeForm::json: {
      auto json = ExchangeJson::array();
      for (const auto& action : actions) json.push_back(jsonOfExported(action));
      const std::string text = jsonText(json);
      return {text.begin(), text.end()};
    }
    case ExchangeForm::archive:
      break;
  }
  return archive;
}

ActionList importedActions(const Data& bytes) {
  ActionList actions;
  try {
    const Value root =
        Unarchiver::unarchiveObjectWithData(archiveOf(bytes), *platform().classRegistry);
    const auto* array = root.getIf<Value::Array>();
    actions = actionsOfArray(array == nullptr ? Value::Array{root} : *array);
  } catch (const PlatformException& exception) {
    throw CommandError(tr("The file holds no actions: {1}", exception.reason()));
  }
  for (const auto& action : actions) {
    const auto* group = groupOf(action);
    if (group == nullptr || !group->workingActionsArray()) continue;
    for (const auto& member : *group->workingActionsArray()) {
      if (groupOf(member) != nullptr) {
        throw CommandError(
            tr("A group of the file is a member of another group, which no menu shows."));
      }
    }
  }
  std::set<const TVAction*> seen;
  separate(actions, seen);
  return actions;
}

ActionCommands commandsOfAction(const TVAction& action) {
  ActionCommands commands;
  auto& lines = commands.lines;
  if (const auto* script = dynamic_cast<const TVShellScriptAction*>(&action)) {
    lines.push_back(tr("runs {1} with the files", "/bin/bash " + pathOf(script->scriptURL())));
    if (script->scriptURL()) appendScript(script->scriptURL()->path(), commands);
  } else if (const auto* call = dynamic_cast<const TVAppleScriptAction*>(&action)) {
    lines.push_back(tr("calls runWithPaths of {1}", pathOf(call->scriptURL())));
    if (call->scriptURL()) appendScript(call->scriptURL()->path(), commands);
  } else if (dynamic_cast<const TVSendViaEmailAction*>(&action) != nullptr) {
    lines.emplace_back(tr("gives the files to the mail program"));
  } else if (const auto* opener = dynamic_cast<const TVOpenWithAppAction*>(&action)) {
    const std::string path = pathOf(opener->applicationURL());
    const auto entry = path.ends_with(".desktop") ? applicationEntryAtPath(path) : std::nullopt;
    lines.push_back(entry ? tr("starts {1}, which runs {2}", path, entry->exec)
                          : tr("starts {1}", path));
  } else if (dynamic_cast<const TVSecureRemoveAction*>(&action) != nullptr) {
    lines.emplace_back(tr("overwrites and removes the files for good"));
  } else if (dynamic_cast<const TVResetAppPreferencesAction*>(&action) != nullptr) {
    lines.emplace_back(tr("resets the preferences of an application"));
  } else if (const auto* move = dynamic_cast<const TVMoveToAction*>(&action)) {
    lines.push_back(tr("moves the files to {1}", pathOf(move->destinationURL())));
  } else if (const auto* copy = dynamic_cast<const TVCopyToAction*>(&action)) {
    lines.push_back(tr("copies the files to {1}", pathOf(copy->destinationURL())));
  } else if (const auto* favourite = dynamic_cast<const TVOpenFavesAction*>(&action)) {
    lines.push_back(tr("opens the folder {1}", pathOf(favourite->destinationURL())));
  } else if (const auto* newFile = dynamic_cast<const TVNewFileAction*>(&action)) {
    lines.push_back(tr("makes files from {1}", pathOf(newFile->templateURL())));
  } else if (const auto* convert = dynamic_cast<const TVConvertImageAction*>(&action)) {
    lines.push_back(
        tr("converts pictures to {1}", convert->outputFormat().value_or(tr("(nothing)").shown())));
  }
  return commands;
}

ActionList freshenUids(const ActionList& imported, const ActionList& list) {
  std::set<std::string> known;
  forEachAction(list, [&](const auto& action) { known.insert(action->uid().value_or("")); });
  ActionList changed;
  forEachAction(imported, [&](const auto& action) {
    const std::string uid = action->uid().value_or("");
    if (isUid(uid) && known.insert(uid).second) return;
    action->generateUID();
    known.insert(*action->uid());
    changed.push_back(action);
  });
  return changed;
}

}  // namespace tervano
