#pragma once

#include <string>

#include "platform/log.h"

namespace tervano {

// The log on standard error, which a desktop session keeps in its journal: one write(2) for each
// line, "PROGRAM[PID] tervano: TEXT". The program's name stands in front since most of our code
// runs inside a file manager.
//
// Any thread. A closed or full standard error loses lines, never the process: no SIGPIPE, and at
// most a second of waiting when the descriptor does not block.
class StderrLog : public Log {
 public:
  void write(std::string_view line) override;

  // `text` with everything that a terminal could take for a command made visible: control
  // characters as \n, \t, \r or \xNN, and bytes that are not UTF-8 as \xNN.
  static std::string escaped(std::string_view text);
};

}  // namespace tervano
