#pragma once

#include <string>
#include <vector>

namespace tervano {

// What a window asks. Texts are shown as they are, no markup; bytes that are not UTF-8 as
// replacement characters.
struct DialogQuestion {
  std::string text;
  // More about it, below the question; empty for none.
  std::string detail;
  std::vector<std::string> items;
  // The label of the button that consents.
  std::string consent;
  // Where a new password goes that is asked for as well, an open descriptor; -1: none is asked for.
  int passwordDescriptor = -1;
};

enum class DialogAnswer { consent, refusal, noDisplay };

// Shows the window and waits for the answer: the button, or anything else that closes the window,
// which is a refusal. The refusing button has the focus.
//
// With a password there are two fields, the first of which has the focus, and consent takes the
// same text in both, not an empty one. It is written without a line end and kept in the toolkit's
// locked memory only; no other process of the user can look into this one (PR_SET_DUMPABLE). When
// it cannot be written the answer is a refusal.
//
// Main thread, once a process.
DialogAnswer askInWindow(const DialogQuestion& question);

}  // namespace tervano
