#include "platform/linux/process_tree.h"

#include <dirent.h>
#include <poll.h>
#include <sys/syscall.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace tervano {

namespace {

void signalProcess(const Descriptor& process, int number) {
  syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0);
}

// The parent of a process; 0 when it is gone.
int parentOfProcess(const std::string& process) {
  std::ifstream file("/proc/" + process + "/stat");
  std::string line;
  std::getline(file, line);
  // The program's name stands in brackets and may hold any character.
  const auto nameEnd = line.rfind(')');
  constexpr std::size_t kStateLength = 4;
  if (nameEnd == std::string::npos || nameEnd + kStateLength >= line.size()) return 0;
  int parent = 0;
  std::from_chars(line.data() + nameEnd + kStateLength, line.data() + line.size(), parent);
  return parent;
}

// The children of each process.
std::map<int, std::vector<int>> childrenOfProcesses() {
  std::map<int, std::vector<int>> children;
  DIR* const processes = opendir("/proc");
  if (processes == nullptr) return children;
  while (const dirent* const entry = readdir(processes)) {
    int pid = 0;
    const char* const end = entry->d_name + std::strlen(entry->d_name);
    if (std::from_chars(entry->d_name, end, pid).ptr != end) continue;
    if (const int parent = parentOfProcess(entry->d_name); parent > 0) {
      children[parent].push_back(pid);
    }
  }
  closedir(processes);
  return children;
}

}  // namespace

ProcessTree::ProcessTree(std::vector<std::shared_ptr<Process>> roots) : roots_(std::move(roots)) {
  std::vector<int> held;
  for (const auto& root : roots_) {
    if (root->suspend()) held.push_back(static_cast<int>(root->processIdentifier()));
  }
  hold(held);
}

void ProcessTree::hold(const std::vector<int>& parents) {
  // A process with a signal waiting for it makes no other one, so a generation that is being held
  // has no children but those that can be seen; and none of these is reaped, so each number stays
  // its own.
  std::set<int> known(parents.begin(), parents.end());
  std::vector<int> generation = parents;
  while (!generation.empty()) {
    const auto children = childrenOfProcesses();
    std::vector<int> next;
    for (const int parent : generation) {
      const auto found = children.find(parent);
      if (found == children.end()) continue;
      for (const int child : found->second) {
        if (!known.insert(child).second) continue;
        Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
        if (!process) continue;
        signalProcess(process, SIGSTOP);
        descendants_.push_back(std::move(process));
        next.push_back(child);
      }
    }
    generation = std::move(next);
  }
}

void ProcessTree::terminate() const {
  for (const auto& root : roots_) root->terminate();
  for (const auto& process : descendants_) {
    signalProcess(process, SIGTERM);
    signalProcess(process, SIGCONT);
  }
}

void ProcessTree::kill() const {
  for (const auto& root : roots_) {
    if (root->isRunning()) ::kill(static_cast<pid_t>(root->processIdentifier()), SIGKILL);
  }
  for (const auto& process : descendants_) signalProcess(process, SIGKILL);
}

bool ProcessTree::isRunning() const {
  const auto runs = [](const Descriptor& process) {
    pollfd end{process.get(), POLLIN, 0};
    return poll(&end, 1, 0) == 0;
  };
  return std::any_of(roots_.begin(), roots_.end(),
                     [](const auto& root) { return root->isRunning(); }) ||
         std::any_of(descendants_.begin(), descendants_.end(), runs);
}

}  // namespace tervano
