#pragma once

#include <string>
#include <vector>

#include "archive/value.h"
#include "model/tv_action.h"

namespace tervano {

// The forms in which actions travel: the keyed archive of the list's own file, the same archive as
// an XML property list, and JSON, an array of objects with the class under "class" and the archived
// fields under their names; data is {"$data": BASE64}, a URL {"$url": TEXT}.
enum class ExchangeForm { archive, xml, json };

// "archive", "xml" or "json"; throws UsageError for another word.
ExchangeForm requireExchangeForm(const std::string& name);

// The actions as a file of that form.
Data exportedActions(const ActionList& actions, ExchangeForm form);

// The actions of such a file, whose form its content tells. A file may hold one action instead of
// an array. Throws CommandError with the reason for what is no such file, holds an object of an
// unknown class, or holds a group inside a group; nothing else is believed of it. Every action
// is an object of its own, also one that the file holds in several places.
ActionList importedActions(const Data& bytes);

// What an action would start, open, remove or change: one line each, the text of a script that is
// here included.
struct ActionCommands {
  std::vector<std::string> lines;
  // False when the script is too long to be among the lines; they say so.
  bool areWhole = true;
};
ActionCommands commandsOfAction(const TVAction& action);

// Gives a fresh uid to every action, members included, that has none, one of another form, or one
// that is in `list` or stood before it. Answers those that got one.
ActionList freshenUids(const ActionList& imported, const ActionList& list);

}  // namespace tervano
