#include "platform/linux/program_launcher.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "platform/linux/descriptor.h"
#include "platform/linux/glib_handles.h"

namespace tervano {

namespace {

// A process may have opened a thousand programs, but not as many descriptors.
constexpr int kLargestWatched = 64;
constexpr guint kPollSeconds = 1;

struct WatchedProgram {
  pid_t pid;
  // Readable once the process has ended.
  Descriptor pidDescriptor;
  int* count;
};

gboolean reapProgram(gint /*descriptor*/, GIOCondition /*condition*/, gpointer data) {
  const auto* program = static_cast<WatchedProgram*>(data);
  waitpid(program->pid, nullptr, 0);
  --*program->count;
  return G_SOURCE_REMOVE;
}

}  // namespace

ProgramLauncher::~ProgramLauncher() {
  if (pollTimer_ != nullptr) g_source_unref(pollTimer_);
}

int ProgramLauncher::start(const std::vector<std::string>& arguments, const Options& options) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  if (options.folder) posix_spawn_file_actions_addchdir_np(&actions, options.folder->c_str());
  // Whoever reads what this process writes must not wait for the program's end; its log stays.
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  // The program outlives this process and its terminal's signals, and starts with none blocked.
  sigset_t none;
  sigset_t defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  pid_t pid = 0;
  auto variables = environmentWithToken(options.activationToken);
  std::vector<char*> environment;
  environment.reserve(variables.size() + 1);
  for (auto& variable : variables) environment.push_back(variable.data());
  environment.push_back(nullptr);
  const int failure =
      posix_spawnp(&pid, argv.front(), &actions, &attributes, argv.data(), environment.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failure == 0) bus_.post([this, pid] { reapLater(pid); });
  return failure;
}

void ProgramLauncher::reapLater(pid_t pid) {
  if (watched_ < kLargestWatched) {
    Descriptor pidDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (pidDescriptor) {
      ++watched_;
      GSource* source = g_unix_fd_source_new(pidDescriptor.get(), G_IO_IN);
      g_source_set_callback(source, G_SOURCE_FUNC(reapProgram),
                            new WatchedProgram{pid, std::move(pidDescriptor), &watched_},
                            [](gpointer data) { delete static_cast<WatchedProgram*>(data); });
      g_source_attach(source, bus_.context());
      g_source_unref(source);
      return;
    }
  }
  polled_.push_back(pid);
  if (pollTimer_ != nullptr) return;
  pollTimer_ = g_timeout_source_new_seconds(kPollSeconds);
  g_source_set_callback(
      pollTimer_,
      [](gpointer self) -> gboolean {
        static_cast<ProgramLauncher*>(self)->poll();
        return G_SOURCE_CONTINUE;
      },
      this, nullptr);
  g_source_attach(pollTimer_, bus_.context());
}

void ProgramLauncher::poll() {
  polled_.erase(std::remove_if(polled_.begin(), polled_.end(),
                               [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; }),
                polled_.end());
  if (!polled_.empty()) return;
  g_source_destroy(pollTimer_);
  g_source_unref(pollTimer_);
  pollTimer_ = nullptr;
}

std::vector<std::string> terminalWords() {
  struct Terminal {
    const char* program;
    // Before the command; null when it follows directly.
    const char* option;
  };
  // The desktop's choice, the distribution's choice (Debian Policy, 11.8.3), then common ones.
  static constexpr Terminal kTerminals[] = {{"xdg-terminal-exec", nullptr},
                                            {"x-terminal-emulator", "-e"},
                                            {"gnome-terminal", "--"},
                                            {"konsole", "-e"},
                                            {"mate-terminal", "-x"},
                                            {"xfce4-terminal", "-x"},
                                            {"xterm", "-e"}};
  for (const auto& terminal : kTerminals) {
    const GCharPtr path(g_find_program_in_path(terminal.program));
    if (path == nullptr) continue;
    std::vector<std::string> words{path.get()};
    if (terminal.option != nullptr) words.emplace_back(terminal.option);
    return words;
  }
  return {};
}

}  // namespace tervano
