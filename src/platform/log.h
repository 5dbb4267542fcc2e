#pragma once

#include <string_view>

namespace tervano {

// The system log. Any thread.
class Log {
 public:
  virtual ~Log() = default;
  // Writes `line` as one line; control characters inside it are shown escaped.
  virtual void write(std::string_view line) = 0;
};

class ForwardingLog : public Log {
 public:
  explicit ForwardingLog(Log& real) : real_(real) {}
  void write(std::string_view line) override { real_.write(line); }

 private:
  Log& real_;
};

// Writes to the installed platform's log.
void log(std::string_view line);

}  // namespace tervano
