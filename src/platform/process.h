#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/value.h"

namespace tervano {

// The notification posted on the platform's notification centre, with the process as sender, on the
// main queue once a launched process has ended.
inline constexpr char kTaskDidTerminateNotification[] = "NSTaskDidTerminateNotification";

enum class TerminationReason : std::int64_t { exit = 1, uncaughtSignal = 2 };

// The reading end of a pipe. A readability handler is called on a background thread whenever bytes
// or the end of file can be read, one call at a time, and not any more once end of file was read.
class FileHandle {
 public:
  using ReadabilityHandler = std::function<void(FileHandle&)>;

  virtual ~FileHandle() = default;
  // Null removes it; a call already under way may still end after that. Any thread.
  virtual void setReadabilityHandler(ReadabilityHandler handler) = 0;
  // One read of at most 64 KiB of what is there now; empty at end of file. Waits when there is
  // nothing yet.
  virtual Data availableData() = 0;
};

// A one-way channel whose writing end is handed to a process. The process service closes the
// writing end in this process after the launch.
class Pipe {
 public:
  virtual ~Pipe() = default;
  virtual const std::shared_ptr<FileHandle>& fileHandleForReading() const = 0;
};

// One child process: prepared, launched once, then ended. Main thread. A launched process lives on
// in the service until it has been reaped, whoever drops it.
class Process {
 public:
  virtual ~Process() = default;

  virtual void setLaunchPath(std::string path) = 0;
  virtual const std::string& launchPath() const = 0;
  // The arguments without the program itself. A nil argument is the caller's fault and cannot be
  // expressed here.
  virtual void setArguments(std::vector<std::string> arguments) = 0;
  virtual const std::vector<std::string>& arguments() const = 0;
  // Nil: inherited.
  virtual void setEnvironment(std::optional<std::map<std::string, std::string>> environment) = 0;
  virtual void setCurrentDirectoryPath(std::optional<std::string> path) = 0;

  // Null: inherited.
  virtual void setStandardOutput(std::shared_ptr<Pipe> pipe) = 0;
  virtual void setStandardError(std::shared_ptr<Pipe> pipe) = 0;
  virtual const std::shared_ptr<Pipe>& standardOutput() const = 0;
  virtual const std::shared_ptr<Pipe>& standardError() const = 0;

  // Open descriptors of ours that the program gets: as its standard input, and as its descriptor 3.
  // A duplicate is taken at once and kept until the launch; throws PlatformException when there is
  // none to be had. -1: standard input is inherited, and there is no descriptor 3.
  virtual void setStandardInput(int descriptor) = 0;
  virtual void setExtraDescriptor(int descriptor) = 0;

  // Starts the program. Throws PlatformException when it cannot be started or was started before.
  virtual void launch() = 0;
  // From the launch until the end has been reported.
  virtual bool isRunning() const = 0;
  // Sends SIGTERM, and SIGCONT so that a stopped process sees it. Nothing when not running.
  virtual void terminate() = 0;
  // SIGSTOP and SIGCONT; false when not running.
  virtual bool suspend() = 0;
  virtual bool resume() = 0;
  virtual std::int64_t processIdentifier() const = 0;
  // Meaningful after the end.
  virtual TerminationReason terminationReason() const = 0;
  // Exit status or signal number, after the end.
  virtual int terminationStatus() const = 0;
};

// Makes processes and pipes. What a child has written before its end is delivered to the
// readability handlers before the end is reported, without waiting for grandchildren that hold a
// pipe open.
class Processes {
 public:
  virtual ~Processes() = default;
  virtual std::shared_ptr<Process> createProcess() = 0;
  // Throws PlatformException when the descriptors run out.
  virtual std::shared_ptr<Pipe> createPipe() = 0;
};

class ForwardingProcesses : public Processes {
 public:
  explicit ForwardingProcesses(Processes& real) : real_(real) {}
  std::shared_ptr<Process> createProcess() override { return real_.createProcess(); }
  std::shared_ptr<Pipe> createPipe() override { return real_.createPipe(); }

 private:
  Processes& real_;
};

}  // namespace tervano
