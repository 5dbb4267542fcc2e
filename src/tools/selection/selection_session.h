#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tervano {

// An action that can be chosen.
struct SelectionChoice {
  std::string uid;
  // Shown as it is; bytes that are not UTF-8 as replacement characters.
  std::string title;
};

// What the desktop is asked for.
struct SessionRequest {
  // The text that is marked, instead of what was copied.
  bool isPrimary = false;
  // Whether a window lets the user choose.
  bool chooses = false;
  // For the owner of the content to answer.
  int timeoutMilliseconds = 5000;
  // Called once with the files, before anything can be chosen. Empty: there are none.
  std::function<void(const std::vector<std::string>& files)> didRead;
  // The choices for them, waited for where the window stays alive. Called on a thread of its own.
  std::function<std::vector<SelectionChoice>()> choices;
};

enum class SelectionOutcome { done, noFiles, refused, noDisplay, timedOut };

struct SelectionAnswer {
  SelectionOutcome outcome = SelectionOutcome::noDisplay;
  // Of the choice.
  std::string uid;
  // With what the next window comes to the front; both may be empty.
  std::string activationToken;
  std::string startupIdentifier;
  // Whether there was a window, which uses up what the program was started with.
  bool hadWindow = false;
};

// Reads the files that are on the clipboard, or that the marked text names, and lets the user
// choose what to do with them. A window is shown for a choice, and where the desktop tells only the
// program in front what was copied (Wayland). Main thread, once a process.
SelectionAnswer runSelectionSession(const SessionRequest& request);

}  // namespace tervano
