#include "platform/linux/posix_processes.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "archive/platform_exception.h"
#include "platform/error.h"
#include "platform/linux/activation.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/guard.h"
#include "platform/notification_center.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr std::size_t kLargestChunk = std::size_t{64} * 1024;
constexpr int kEventsPerTurn = 64;
constexpr int kFirstFreeDescriptor = 3;
// What a process gets as its extra descriptor.
constexpr int kExtraDescriptor = 3;
constexpr int kUnknownStatus = -1;
// The event of nobody: the thread is to end.
constexpr std::uint64_t kStopEvent = 0;

int openPidDescriptor(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

bool sendSignal(int pidDescriptor, int signal) {
  return syscall(SYS_pidfd_send_signal, pidDescriptor, signal, nullptr, 0) == 0;
}

[[noreturn]] void fail(const std::string& what, int code) {
  throw PlatformException(kInvalidArgumentException, posixError(code, what).message);
}

}  // namespace

class LinuxProcess;
class ReadEnd;

// What pipes, processes and the thread share.
class ProcessService : public std::enable_shared_from_this<ProcessService> {
 public:
  // A launched child until it is reaped.
  struct Child {
    Descriptor handle;
    std::shared_ptr<LinuxProcess> process;
    std::shared_ptr<ReadEnd> output;
    std::shared_ptr<ReadEnd> error;
    // The request for which it was launched.
    std::shared_ptr<Activation> activation;
  };

  std::map<std::string, std::string> toolTable;

  // Calls `open` for a new descriptor, once more with a raised limit when they run out; raises it
  // in good time too, since the host needs descriptors as well.
  template <typename Open>
  int openDescriptor(Open open) {
    int descriptor = open();
    if (descriptor < 0 && errno == EMFILE && raiseLimit()) descriptor = open();
    rlimit limit{};
    if (descriptor >= 0 && getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
        isNear(descriptor, limit.rlim_cur)) {
      raiseLimit();
    }
    return descriptor;
  }

  // Throws PlatformException when it cannot. Answers the watch.
  std::uint64_t watchReadEnd(int descriptor, const std::weak_ptr<ReadEnd>& readEnd);
  void forgetReadEnd(int descriptor, std::uint64_t watch);

  // Starts the thread when it does not run yet; throws PlatformException when it cannot.
  void start();
  // Begins to wait for the end of a launched child.
  void watchChild(std::shared_ptr<Child> child);
  // The end was reported.
  void childEnded();
  // Runs `spawn` under the limits that the process had at first.
  int underOriginalLimit(const std::function<int()>& spawn);
  int running() const { return running_; }
  void stop();

 private:
  static bool isNear(int descriptor, rlim_t limit) {
    return static_cast<rlim_t>(descriptor) > limit / 4 * 3;
  }
  static void setSoftLimit(rlim_t soft);
  bool raiseLimit();
  void startLocked();
  bool watch(int descriptor, std::uint64_t id) const;
  void run(int poller);
  void serve(std::uint64_t id);
  void reap(std::uint64_t id, const std::shared_ptr<Child>& child);

  std::mutex mutex_;
  Descriptor epoll_;
  Descriptor stop_;
  std::uint64_t lastId_ = kStopEvent;
  std::map<std::uint64_t, std::weak_ptr<ReadEnd>> readEnds_;
  std::map<std::uint64_t, std::shared_ptr<Child>> children_;
  std::atomic<int> running_{0};
  std::mutex limitMutex_;
  // The limits before they were raised.
  std::optional<rlimit> originalLimit_;
};

class ReadEnd : public FileHandle, public std::enable_shared_from_this<ReadEnd> {
 public:
  ReadEnd(Descriptor descriptor, std::shared_ptr<ProcessService> service)
      : descriptor_(std::move(descriptor)), service_(std::move(service)) {}
  ReadEnd(const ReadEnd&) = delete;
  ReadEnd& operator=(const ReadEnd&) = delete;
  ~ReadEnd() override { unwatch(); }

  void setReadabilityHandler(ReadabilityHandler handler) override {
    // Let go after the lock, since that may let go of anything.
    std::shared_ptr<ReadabilityHandler> previous;
    const std::lock_guard lock(mutex_);
    previous = std::move(handler_);
    handler_ = handler ? std::make_shared<ReadabilityHandler>(std::move(handler)) : nullptr;
    activation_ = currentActivation();
    if (handler_ == nullptr || hasEnded_) {
      unwatch();
    } else if (!watch_) {
      watch_ = service_->watchReadEnd(descriptor_.get(), weak_from_this());
    }
  }

  Data availableData() override {
    Data data(kLargestChunk);
    ssize_t count = 0;
    do {
      count = read(descriptor_.get(), data.data(), data.size());
    } while (count < 0 && errno == EINTR);
    data.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    bytesRead_ += data.size();
    if (data.empty()) {
      const std::lock_guard lock(mutex_);
      hasEnded_ = true;
      unwatch();
    }
    return data;
  }

  // Calls the handler, if there is one. On the service's thread, which must not wait: an event may
  // be about what was drained since.
  void callHandler() {
    pollfd now{descriptor_.get(), POLLIN, 0};
    if (poll(&now, 1, 0) <= 0) return;
    std::shared_ptr<ReadabilityHandler> handler;
    std::shared_ptr<Activation> activation;
    {
      const std::lock_guard lock(mutex_);
      handler = handler_;
      activation = activation_;
    }
    const ActivationScope scope(activation);
    if (handler == nullptr) return;
    // One that throws would be called again and again.
    if (!guarded("a readability handler", [&] { (*handler)(*this); })) {
      setReadabilityHandler(nullptr);
    }
  }

  // Calls the handler until it has read what is in the pipe now. On the service's thread.
  void drain() {
    const std::uint64_t end = bytesRead_ + waitingBytes();
    while (bytesRead_ < end && waitingBytes() > 0) {
      const std::uint64_t before = bytesRead_;
      callHandler();
      if (bytesRead_ == before) return;
    }
  }

 private:
  std::uint64_t waitingBytes() const {
    int count = 0;
    return ioctl(descriptor_.get(), FIONREAD, &count) == 0 && count > 0
               ? static_cast<std::uint64_t>(count)
               : 0;
  }

  void unwatch() {
    if (watch_) service_->forgetReadEnd(descriptor_.get(), *watch_);
    watch_.reset();
  }

  const Descriptor descriptor_;
  const std::shared_ptr<ProcessService> service_;
  std::mutex mutex_;
  std::shared_ptr<ReadabilityHandler> handler_;
  // The request in which the handler was set.
  std::shared_ptr<Activation> activation_;
  std::optional<std::uint64_t> watch_;
  bool hasEnded_ = false;
  std::atomic<std::uint64_t> bytesRead_{0};
};

namespace {

class LinuxPipe : public Pipe {
 public:
  LinuxPipe(std::shared_ptr<ReadEnd> readEnd, Descriptor writeEnd)
      : readEnd_(std::move(readEnd)), handle_(readEnd_), writeEnd_(std::move(writeEnd)) {}

  const std::shared_ptr<FileHandle>& fileHandleForReading() const override { return handle_; }
  const std::shared_ptr<ReadEnd>& readEnd() const { return readEnd_; }
  int writeEnd() const { return writeEnd_.get(); }
  void closeWriteEnd() { writeEnd_.reset(); }

 private:
  const std::shared_ptr<ReadEnd> readEnd_;
  const std::shared_ptr<FileHandle> handle_;
  Descriptor writeEnd_;
};

// The attributes and actions of one posix_spawn.
class SpawnPlan {
 public:
  SpawnPlan() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
  ~SpawnPlan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  // Every `ours` must be beyond the standard streams, and the extra descriptor comes last.
  void connect(int ours, int childs) {
    posix_spawn_file_actions_adddup2(&actions_, ours, childs);
    firstClosed_ = std::max(firstClosed_, childs + 1);
  }
  void changeFolder(int folder) { posix_spawn_file_actions_addfchdir_np(&actions_, folder); }

  // 0 or the reason. To be called once, after the others.
  int spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::vector<std::string>& environment, pid_t& pid) {
    // A host may have opened descriptors without thinking of its children.
    posix_spawn_file_actions_addclosefrom_np(&actions_, firstClosed_);
    std::vector<char*> argumentPointers = pointers(arguments);
    std::vector<char*> environmentPointers = pointers(environment);
    return posix_spawn(&pid, program.c_str(), &actions_, &attributes_, argumentPointers.data(),
                       environmentPointers.data());
  }

 private:
  static std::vector<char*> pointers(const std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (const std::string& string : strings) result.push_back(const_cast<char*>(string.c_str()));
    result.push_back(nullptr);
    return result;
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int firstClosed_ = kFirstFreeDescriptor;
};

bool holdsNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

}  // namespace

class LinuxProcess : public Process, public std::enable_shared_from_this<LinuxProcess> {
 public:
  explicit LinuxProcess(std::shared_ptr<ProcessService> service) : service_(std::move(service)) {}

  void setLaunchPath(std::string path) override { launchPath_ = std::move(path); }
  const std::string& launchPath() const override { return launchPath_; }
  void setArguments(std::vector<std::string> arguments) override {
    arguments_ = std::move(arguments);
  }
  const std::vector<std::string>& arguments() const override { return arguments_; }
  void setEnvironment(std::optional<std::map<std::string, std::string>> environment) override {
    environment_ = std::move(environment);
  }
  void setCurrentDirectoryPath(std::optional<std::string> path) override {
    currentDirectoryPath_ = std::move(path);
  }
  void setStandardOutput(std::shared_ptr<Pipe> pipe) override { output_ = std::move(pipe); }
  void setStandardError(std::shared_ptr<Pipe> pipe) override { error_ = std::move(pipe); }
  const std::shared_ptr<Pipe>& standardOutput() const override { return output_; }
  const std::shared_ptr<Pipe>& standardError() const override { return error_; }
  void setStandardInput(int descriptor) override { input_ = duplicate(descriptor); }
  void setExtraDescriptor(int descriptor) override { extra_ = duplicate(descriptor); }

  void launch() override;

  bool isRunning() const override { return child_ != nullptr; }
  void terminate() override {
    if (child_ == nullptr) return;
    sendSignal(child_->handle.get(), SIGTERM);
    sendSignal(child_->handle.get(), SIGCONT);
  }
  bool suspend() override { return child_ != nullptr && sendSignal(child_->handle.get(), SIGSTOP); }
  bool resume() override { return child_ != nullptr && sendSignal(child_->handle.get(), SIGCONT); }
  std::int64_t processIdentifier() const override { return pid_; }
  TerminationReason terminationReason() const override { return reason_; }
  int terminationStatus() const override { return status_; }

  // The end, on the main queue.
  void reportEnd(TerminationReason reason, int status) {
    reason_ = reason;
    status_ = status;
    child_.reset();
    service_->childEnded();
    Notification notification;
    notification.name = kTaskDidTerminateNotification;
    notification.sender = static_cast<Process*>(this);
    platform().notificationCenter->post(notification);
  }

 private:
  [[noreturn]] void refuse(const std::string& program, int code) const {
    fail("Could not launch " + (program.empty() ? "a process without a launch path" : program),
         code);
  }
  std::string programPath() const;
  Descriptor duplicate(int descriptor) const;
  void connect(SpawnPlan& plan, const std::shared_ptr<Pipe>& pipe, int childs) const;
  std::vector<std::string> environment(const std::string& program) const;

  const std::shared_ptr<ProcessService> service_;
  std::string launchPath_;
  std::vector<std::string> arguments_;
  std::optional<std::map<std::string, std::string>> environment_;
  std::optional<std::string> currentDirectoryPath_;
  std::shared_ptr<Pipe> output_;
  std::shared_ptr<Pipe> error_;
  Descriptor input_;
  Descriptor extra_;
  pid_t pid_ = 0;
  TerminationReason reason_ = TerminationReason::exit;
  int status_ = 0;
  // While it runs.
  std::shared_ptr<ProcessService::Child> child_;
};

std::string LinuxProcess::programPath() const {
  const auto replaced = service_->toolTable.find(launchPath_);
  std::string path = replaced == service_->toolTable.end() ? launchPath_ : replaced->second;
  if (path.empty() || holdsNul(path)) refuse(path, EINVAL);
  if (path.front() != '/' && currentDirectoryPath_) {
    // Relative to our own folder, not to the child's.
    const std::unique_ptr<char, decltype(&std::free)> here(getcwd(nullptr, 0), std::free);
    if (here == nullptr) refuse(path, errno);
    path = std::string(here.get()) + "/" + path;
  }
  return path;
}

Descriptor LinuxProcess::duplicate(int descriptor) const {
  if (descriptor < 0) return Descriptor();
  Descriptor copy(service_->openDescriptor(
      [&] { return fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstFreeDescriptor); }));
  if (!copy) fail("No descriptor for a process", errno);
  return copy;
}

std::vector<std::string> LinuxProcess::environment(const std::string& program) const {
  if (!environment_) {
    // Our own tools show nothing, so the token stays for what does.
    const bool isTool = service_->toolTable.contains(launchPath_);
    return environmentWithToken(isTool ? ActivationToken() : takeActivationToken());
  }
  std::vector<std::string> variables;
  for (const auto& [name, value] : *environment_) {
    if (name.empty() || holdsNul(name) || holdsNul(value) || name.find('=') != std::string::npos) {
      refuse(program, EINVAL);
    }
    variables.emplace_back(name).append("=").append(value);
  }
  return variables;
}

void LinuxProcess::connect(SpawnPlan& plan, const std::shared_ptr<Pipe>& pipe, int childs) const {
  if (pipe == nullptr) return;
  const auto ours = std::dynamic_pointer_cast<LinuxPipe>(pipe);
  if (ours == nullptr || ours->writeEnd() < 0) refuse(launchPath_, EBADF);
  plan.connect(ours->writeEnd(), childs);
}

void LinuxProcess::launch() {
  const std::string program = programPath();
  if (pid_ != 0) refuse(program + ", which was launched before", EBUSY);
  std::vector<std::string> arguments{launchPath_};
  arguments.insert(arguments.end(), arguments_.begin(), arguments_.end());
  for (const std::string& argument : arguments) {
    if (holdsNul(argument)) refuse(program, EINVAL);
  }
  const auto variables = environment(program);
  SpawnPlan plan;
  Descriptor folder;
  if (currentDirectoryPath_) {
    folder.reset(service_->openDescriptor(
        [&] { return open(currentDirectoryPath_->c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    if (!folder) refuse(program + " in " + *currentDirectoryPath_, errno);
    plan.changeFolder(folder.get());
  }
  if (input_) plan.connect(input_.get(), STDIN_FILENO);
  connect(plan, output_, STDOUT_FILENO);
  connect(plan, error_, STDERR_FILENO);
  if (extra_) plan.connect(extra_.get(), kExtraDescriptor);
  service_->start();
  // Held for the child's handle: once the child runs there must be no way to fail.
  Descriptor reserved(
      service_->openDescriptor([] { return eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK); }));
  if (!reserved) refuse(program, errno);

  pid_t pid = 0;
  const int code =
      service_->underOriginalLimit([&] { return plan.spawn(program, arguments, variables, pid); });
  if (code != 0) refuse(program, code);
  auto child = std::make_shared<ProcessService::Child>();
  child->handle.reset(openPidDescriptor(pid));
  if (!child->handle && errno == EMFILE) {
    reserved.reset();
    child->handle.reset(openPidDescriptor(pid));
  }
  // Without a handle the host has reaped the child already; the reserved descriptor is readable
  // like that of a child that has ended.
  if (!child->handle) child->handle = std::move(reserved);
  pid_ = pid;
  input_.reset();
  extra_.reset();
  child->process = shared_from_this();
  child->activation = currentActivation();
  const auto closeAndTake = [](const std::shared_ptr<Pipe>& pipe) -> std::shared_ptr<ReadEnd> {
    const auto ours = std::dynamic_pointer_cast<LinuxPipe>(pipe);
    if (ours == nullptr) return nullptr;
    ours->closeWriteEnd();
    return ours->readEnd();
  };
  child->output = closeAndTake(output_);
  if (error_ != output_) child->error = closeAndTake(error_);
  child_ = child;
  service_->watchChild(std::move(child));
}

void ProcessService::start() {
  const std::lock_guard lock(mutex_);
  startLocked();
}

void ProcessService::startLocked() {
  if (epoll_) return;
  Descriptor poller(openDescriptor([] { return epoll_create1(EPOLL_CLOEXEC); }));
  Descriptor stopper(openDescriptor([] { return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }));
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kStopEvent;
  if (!poller || !stopper || epoll_ctl(poller.get(), EPOLL_CTL_ADD, stopper.get(), &event) != 0) {
    fail("Processes cannot be watched", errno);
  }
  // No signal of the host may be handled on a thread of ours.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  bool hasStarted = true;
  try {
    std::thread([service = shared_from_this(), number = poller.get()] {
      pthread_setname_np(pthread_self(), "tv-processes");
      service->run(number);
    }).detach();
  } catch (const std::system_error&) {
    hasStarted = false;
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (!hasStarted) fail("Processes cannot be watched", EAGAIN);
  epoll_ = std::move(poller);
  stop_ = std::move(stopper);
}

void ProcessService::stop() {
  const std::lock_guard lock(mutex_);
  if (stop_) eventfd_write(stop_.get(), 1);
}

bool ProcessService::watch(int descriptor, std::uint64_t id) const {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = id;
  return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

std::uint64_t ProcessService::watchReadEnd(int descriptor, const std::weak_ptr<ReadEnd>& readEnd) {
  const std::lock_guard lock(mutex_);
  startLocked();
  const std::uint64_t id = ++lastId_;
  readEnds_[id] = readEnd;
  if (!watch(descriptor, id)) {
    const int reason = errno;
    readEnds_.erase(id);
    fail("A pipe cannot be watched", reason);
  }
  return id;
}

void ProcessService::forgetReadEnd(int descriptor, std::uint64_t watch) {
  const std::lock_guard lock(mutex_);
  readEnds_.erase(watch);
  epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void ProcessService::watchChild(std::shared_ptr<Child> child) {
  ++running_;
  const std::lock_guard lock(mutex_);
  const std::uint64_t id = ++lastId_;
  const int handle = child->handle.get();
  children_[id] = std::move(child);
  if (!watch(handle, id)) {
    log(posixError(errno, "The end of a process cannot be watched").message);
  }
}

void ProcessService::childEnded() {
  if (--running_ > 0) return;
  const std::lock_guard lock(limitMutex_);
  if (!originalLimit_) return;
  const Descriptor lowestFree(fcntl(epoll_.get(), F_DUPFD_CLOEXEC, 0));
  if (!lowestFree || isNear(lowestFree.get(), originalLimit_->rlim_cur)) return;
  setSoftLimit(originalLimit_->rlim_cur);
  originalLimit_.reset();
}

bool ProcessService::raiseLimit() {
  const std::lock_guard lock(limitMutex_);
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return false;
  const rlimit original = limit;
  limit.rlim_cur = limit.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  if (!originalLimit_) originalLimit_ = original;
  return true;
}

void ProcessService::setSoftLimit(rlim_t soft) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = soft;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int ProcessService::underOriginalLimit(const std::function<int()>& spawn) {
  const std::lock_guard lock(limitMutex_);
  if (!originalLimit_) return spawn();
  // Descriptors that are open stay open; a limit cannot be handed to posix_spawn otherwise.
  setSoftLimit(originalLimit_->rlim_cur);
  const int code = spawn();
  setSoftLimit(originalLimit_->rlim_max);
  return code;
}

void ProcessService::run(int poller) {
  std::array<epoll_event, kEventsPerTurn> events;
  while (true) {
    const int count = epoll_wait(poller, events.data(), kEventsPerTurn, -1);
    for (int at = 0; at < count; ++at) {
      const std::uint64_t id = events[static_cast<std::size_t>(at)].data.u64;
      if (id == kStopEvent) return;
      guarded("the thread of the processes", [&] { serve(id); });
    }
  }
}

void ProcessService::serve(std::uint64_t id) {
  std::shared_ptr<ReadEnd> readEnd;
  std::shared_ptr<Child> child;
  {
    const std::lock_guard lock(mutex_);
    if (const auto found = readEnds_.find(id); found != readEnds_.end()) {
      readEnd = found->second.lock();
    } else if (const auto ended = children_.find(id); ended != children_.end()) {
      child = ended->second;
    }
  }
  if (readEnd != nullptr) readEnd->callHandler();
  if (child != nullptr) reap(id, child);
}

void ProcessService::reap(std::uint64_t id, const std::shared_ptr<Child>& child) {
  TerminationReason reason = TerminationReason::exit;
  int status = kUnknownStatus;
  siginfo_t info{};
  int result = 0;
  do {
    result = waitid(P_PIDFD, static_cast<id_t>(child->handle.get()), &info, WEXITED | WNOHANG);
  } while (result != 0 && errno == EINTR);
  if (result == 0) {
    if (info.si_pid == 0) return;
    if (info.si_code != CLD_EXITED) reason = TerminationReason::uncaughtSignal;
    status = info.si_status;
  } else {
    log("The host took the exit status of " + child->process->launchPath());
  }
  {
    const std::lock_guard lock(mutex_);
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, child->handle.get(), nullptr);
    children_.erase(id);
  }
  // What is there now comes before the end; a grandchild that holds a pipe is not waited for.
  if (child->output != nullptr) child->output->drain();
  if (child->error != nullptr) child->error->drain();
  const ActivationScope scope(child->activation);
  platform().runLoop->dispatchAsyncOnMainQueue([process = std::move(child->process), reason,
                                                status] { process->reportEnd(reason, status); });
}

PosixProcesses::PosixProcesses() : service_(std::make_shared<ProcessService>()) {}

PosixProcesses::~PosixProcesses() {
  service_->stop();
}

std::shared_ptr<Process> PosixProcesses::createProcess() {
  return std::make_shared<LinuxProcess>(service_);
}

std::shared_ptr<Pipe> PosixProcesses::createPipe() {
  int ends[2];
  if (service_->openDescriptor(
          [&] { return pipe2(ends, O_CLOEXEC) == 0 ? std::max(ends[0], ends[1]) : -1; }) < 0) {
    fail("No pipe", errno);
  }
  Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  // In a host without standard streams a pipe could get their numbers, and the two outputs of a
  // child would be mixed up.
  for (Descriptor* end : {&reading, &writing}) {
    if (end->get() >= kFirstFreeDescriptor) continue;
    Descriptor moved(fcntl(end->get(), F_DUPFD_CLOEXEC, kFirstFreeDescriptor));
    if (!moved) fail("No pipe", errno);
    *end = std::move(moved);
  }
  return std::make_shared<LinuxPipe>(std::make_shared<ReadEnd>(std::move(reading), service_),
                                     std::move(writing));
}

void PosixProcesses::setToolTable(std::map<std::string, std::string> table) {
  service_->toolTable = std::move(table);
}

int PosixProcesses::runningProcesses() const {
  return service_->running();
}

}  // namespace tervano
