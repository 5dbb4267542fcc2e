#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace tervano::bench {

// Other processes that wait on their own GLib main loops and write down when their callbacks ran.

// The first argument of a listener process; the others go to `listen`.
inline constexpr char kListenerArgument[] = "--listen";
inline constexpr char kPing[] = "bench.ping";
inline constexpr char kEnd[] = "bench.end";
inline constexpr std::size_t kMostListeners = 20;

enum class Way {
  // The system-wide channel.
  channel,
  // A message that the preferences changed, answered by reading one of them.
  preferences,
  // A signal on the bus of the address that is given in addition.
  dbus,
  // A counter for each of the two names.
  eventfd,
};

// What the listeners write, in memory that all processes share.
struct Board {
  struct alignas(64) Listener {
    // When the last callback for that name began, in nanoseconds.
    std::atomic<std::int64_t> ping;
    std::atomic<std::int64_t> end;
    std::atomic<std::uint32_t> pings;
    std::atomic<std::uint32_t> isReady;
    // For Way::eventfd: the descriptors, the same in both processes.
    int pingDescriptor;
    int endDescriptor;
  };
  // Counts what was written, and is what the sender sleeps on.
  std::atomic<std::uint32_t> bell;
  std::array<Listener, kMostListeners> listeners;
};

// A number of listeners; the destructor ends them.
class Audience {
 public:
  Audience(Way way, std::size_t size, const std::string& busAddress = "");
  Audience(const Audience&) = delete;
  Audience& operator=(const Audience&) = delete;
  ~Audience();

  // Writes to every listener's counter. For Way::eventfd.
  void count(int Board::Listener::*descriptor);
  // Sleeps until every listener's callback ran after `since`; answers when the last one did.
  std::int64_t waitForAll(std::atomic<std::int64_t> Board::Listener::*when, std::int64_t since);
  // How many callbacks for the first name ran.
  std::uint64_t pings() const;

 private:
  void waitUntilReady();

  std::size_t size_;
  int descriptor_ = -1;
  Board* board_ = nullptr;
  std::vector<pid_t> processes_;
};

// The listener process; never returns in the ordinary case.
int listen(const std::vector<std::string>& arguments);

}  // namespace tervano::bench
