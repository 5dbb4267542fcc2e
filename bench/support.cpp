#include "bench/support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "actions/tv_move_to_action.h"
#include "platform/image.h"

namespace tervano::bench {

namespace {

constexpr int kIconPixels = 32;

// A drawing that no other number has, with soft edges as real icons have.
ImagePtr drawing(int number) {
  Bitmap bitmap;
  bitmap.width = bitmap.height = kIconPixels;
  bitmap.pixels.resize(std::size_t{4} * kIconPixels * kIconPixels);
  auto* pixel = bitmap.pixels.data();
  for (int y = 0; y < kIconPixels; ++y) {
    for (int x = 0; x < kIconPixels; ++x, pixel += 4) {
      const int fromCentre = (x - 16) * (x - 16) + (y - 16) * (y - 16);
      if (fromCentre > 200) continue;
      pixel[0] = static_cast<std::uint8_t>(number);
      pixel[1] = static_cast<std::uint8_t>(number >> 8);
      pixel[2] = static_cast<std::uint8_t>(x / 8 * 60);
      pixel[3] = fromCentre > 150 ? 128 : 255;
    }
  }
  return Image::imageWithBitmap(bitmap, {16, 16});
}

pid_t spawn(const std::vector<std::string>& arguments,
            const posix_spawn_file_actions_t* fileActions) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  pid_t process = 0;
  const int code =
      posix_spawnp(&process, pointers[0], fileActions, nullptr, pointers.data(), environ);
  if (code != 0) throw SetupError("could not start " + arguments[0] + ": " + std::strerror(code));
  return process;
}

}  // namespace

std::int64_t monotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

ActionList moveActions(int count, bool withOwnIcons) {
  ActionList actions;
  const ImagePtr common = drawing(0);
  for (int i = 0; i < count; ++i) {
    const auto move = action<TVMoveToAction>();
    move->setTitle("Move to folder " + std::to_string(i));
    move->setIcon(withOwnIcons ? drawing(i) : common);
    move->setDestinationURL(
        Url::fileURLWithPath("/home/somebody/Documents/Folder " + std::to_string(i), true));
    if (i % 2 == 1) move->setFileTypes({{"public.image"}});
    actions.push_back(move);
  }
  return actions;
}

pid_t start(const std::vector<std::string>& arguments) {
  return spawn(arguments, nullptr);
}

void waitForSuccess(pid_t process, const std::string& what) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) throw SetupError("lost " + what);
  }
  if (status != 0) throw SetupError(what + " failed");
}

void stop(pid_t process) {
  kill(process, SIGKILL);
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
}

std::string outputOf(const std::vector<std::string>& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw SetupError("no pipe");
  posix_spawn_file_actions_t fileActions;
  posix_spawn_file_actions_init(&fileActions);
  posix_spawn_file_actions_adddup2(&fileActions, ends[1], STDOUT_FILENO);
  const pid_t process = spawn(arguments, &fileActions);
  posix_spawn_file_actions_destroy(&fileActions);
  close(ends[1]);
  std::string output;
  char buffer[4096];
  ssize_t count = 0;
  while ((count = read(ends[0], buffer, sizeof buffer)) > 0 || (count < 0 && errno == EINTR)) {
    if (count > 0) output.append(buffer, static_cast<std::size_t>(count));
  }
  close(ends[0]);
  waitForSuccess(process, arguments[0]);
  return output;
}

}  // namespace tervano::bench
