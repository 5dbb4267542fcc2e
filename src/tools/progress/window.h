#pragma once

namespace tervano {

enum class WindowEnd {
  // The input ended, or the user closed the window.
  closed,
  noDisplay,
};

// Shows a row with a bar and a button for each thing that the lines on the descriptor tell of, and
// nothing while there is none; see ProgressLine. A press on a button is a line "cancel" with the
// number on standard output. Texts are shown as they are, no markup. Returns at the end of the
// input, or when the user closes the window. Main thread, once a process.
WindowEnd showProgressWindow(int input);

}  // namespace tervano
