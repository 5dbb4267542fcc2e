#pragma once

#include "platform/process.h"
#include "platform/user_scripts.h"

namespace tervano {

// User scripts in Python (python3), JavaScript (gjs), the shell's language (bash) and Lua (lua5.4,
// lua5.3, lua). The extension .py, .js, .sh, .bash or .lua, in any case of letters, tells the
// language, without one of these the program that the "#!" line names. The interpreter is looked
// for in PATH.
//
// A run is one process of the interpreter, with our environment and an empty standard input, that
// executes a loader of ours, resource "user-scripts/runner.*"; the loader loads the script and
// calls the handler. Arguments are texts and lists of texts; other ones are an error. In bash,
// which has no lists as values, all texts become positional parameters of the function. A
// JavaScript handler can be given UTF-8 only, so that another name is an error before anything
// runs.
//
// What the script writes to its two outputs goes to the log by lines, the beginning of much output
// only. The end of the interpreter is the end of the run, whatever processes of the script remain.
// The handler has succeeded when the loader says so and the interpreter ends with status 0. An
// error has the domain "UserScripts" and a sentence with the script's own message: the text and
// line of what it raised, or, for bash and for a script that ended itself, the status and the last
// lines of standard error. Completion handlers are called on the main thread.
//
// Loader and service exchange fields, each ended by NUL, over one file in memory, the interpreter's
// descriptor 3. It holds the request: the handler's name and for each argument "string" TEXT or
// "list" COUNT TEXT... The loader appends its report: "done" and the result as "nothing" or an
// argument's fields, or "missing" when there is no such handler, or "error" TEXT LINE, the line
// empty when unknown.
class InterpreterUserScripts : public UserScripts {
 public:
  // Starts the interpreters through `processes`, which must outlive this object and its tasks.
  explicit InterpreterUserScripts(Processes& processes) : processes_(processes) {}

  std::shared_ptr<UserScriptTask> taskWithURL(const std::optional<Url>& url,
                                              std::optional<Error>* error) override;

 private:
  Processes& processes_;
};

}  // namespace tervano
