#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "translation/translation.h"

namespace tervano {

// What the first start has made.
struct FirstRun {
  // The templates by their names, and the user's folder in which they are; nil when the user has
  // switched that off.
  std::vector<std::string> templates;
  std::optional<std::string> templatesFolder;
  // Why not all templates could be made; nil when nothing failed.
  std::optional<Sentence> templatesComplaint;
  // The entries of the new list, members of groups not counted; 0 when none was made.
  std::size_t actions = 0;
  // Whether there was a list, which stays as it is.
  bool foundList = false;
};

// Makes what a user finds at the first start: templates for new files in the user's folder of
// templates, and a list of actions. Each is made once, which the preferences
// didCreateDefaultTemplates, didCreateDefaultActions (groups and single actions) and
// didCreateDefaultActions2 (the scripts that come with the program) note; a list that is there and
// a template that has the name already are never touched. What cannot be made is
// made at the next start: templates with a complaint, and the list all the same; for a list that
// cannot be made throws CommandError. Blocking.
FirstRun makeFirstRun();

// The same at the start of the companion: a failure is one line in the log.
void makeFirstRunAtStart();

}  // namespace tervano
