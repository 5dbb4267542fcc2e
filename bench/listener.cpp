#include "bench/listener.h"

#include <gio/gio.h>
#include <glib-unix.h>
#include <linux/futex.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <string_view>

#include "bench/support.h"
#include "messaging/message_identifiers.h"
#include "messaging/vx_wormhole.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "prefs/tv_user_defaults.h"

namespace tervano::bench {

namespace {

constexpr std::int64_t kLongestWait = 60'000'000'000;

Board* mapBoard(int descriptor) {
  void* const memory =
      mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) throw SetupError("no shared memory");
  return static_cast<Board*>(memory);
}

void ring(Board& board) {
  board.bell.fetch_add(1);
  syscall(SYS_futex, &board.bell, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Sleeps until the bell has been rung since it was `seen`; false when that takes a second.
void sleepSince(Board& board, std::uint32_t seen) {
  const timespec second{1, 0};
  syscall(SYS_futex, &board.bell, FUTEX_WAIT, seen, &second, nullptr, 0);
}

struct Seat {
  Board* board;
  Board::Listener* listener;

  void hear(std::string_view name) {
    const auto now = monotonicNanoseconds();
    if (name == kEnd) {
      listener->end = now;
    } else {
      listener->ping = now;
      ++listener->pings;
    }
    ring(*board);
  }
};

gboolean onPing(gint descriptor, GIOCondition, gpointer seat) {
  eventfd_t value = 0;
  eventfd_read(descriptor, &value);
  static_cast<Seat*>(seat)->hear(kPing);
  return G_SOURCE_CONTINUE;
}

gboolean onEnd(gint descriptor, GIOCondition, gpointer seat) {
  eventfd_t value = 0;
  eventfd_read(descriptor, &value);
  static_cast<Seat*>(seat)->hear(kEnd);
  return G_SOURCE_CONTINUE;
}

void onSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* name,
              GVariant*, gpointer seat) {
  static_cast<Seat*>(seat)->hear(std::string_view(name) == "End" ? kEnd : kPing);
}

void takeSeat(Seat& seat, Way way, const std::string& busAddress) {
  switch (way) {
    case Way::channel:
      for (const char* name : {kPing, kEnd}) {
        platform().notifyChannel->addObserver(
            &seat, name, [&seat](const std::string& heard) { seat.hear(heard); });
      }
      break;
    case Way::preferences: {
      static const auto wormhole = VXWormhole::initWithApplicationGroupIdentifier(
          kApplicationGroupIdentifier, kWormholeDirectory);
      wormhole->listenForMessageWithIdentifier(
          kUserDefaultsDidChangeNotification, [&seat](const Value&) {
            volatile const bool value = TVUserDefaults::create()->playAlertOnCompletion();
            static_cast<void>(value);
            seat.hear(kPing);
          });
      break;
    }
    case Way::dbus: {
      GError* error = nullptr;
      GDBusConnection* const bus = g_dbus_connection_new_for_address_sync(
          busAddress.c_str(),
          static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, &error);
      if (bus == nullptr) throw SetupError(error->message);
      g_dbus_connection_signal_subscribe(bus, nullptr, "com.vessok.Bench", nullptr, nullptr,
                                         nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onSignal, &seat,
                                         nullptr);
      // The subscription has reached the bus when this is answered.
      g_variant_unref(g_dbus_connection_call_sync(
          bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
          nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error));
      break;
    }
    case Way::eventfd:
      g_unix_fd_add(seat.listener->pingDescriptor, G_IO_IN, onPing, &seat);
      g_unix_fd_add(seat.listener->endDescriptor, G_IO_IN, onEnd, &seat);
      break;
  }
}

}  // namespace

Audience::Audience(Way way, std::size_t size, const std::string& busAddress) : size_(size) {
  // Inherited by the listeners, as the counters are.
  descriptor_ = memfd_create("bench", 0);
  if (descriptor_ < 0 || ftruncate(descriptor_, sizeof(Board)) != 0) {
    throw SetupError("no shared memory");
  }
  board_ = mapBoard(descriptor_);
  for (std::size_t i = 0; i < size; ++i) {
    Board::Listener& listener = board_->listeners[i];
    listener.pingDescriptor = way == Way::eventfd ? eventfd(0, EFD_NONBLOCK) : -1;
    listener.endDescriptor = way == Way::eventfd ? eventfd(0, EFD_NONBLOCK) : -1;
    processes_.push_back(
        start({"/proc/self/exe", kListenerArgument, std::to_string(static_cast<int>(way)),
               std::to_string(descriptor_), std::to_string(i), busAddress}));
  }
  waitUntilReady();
}

Audience::~Audience() {
  for (const pid_t process : processes_) stop(process);
  for (std::size_t i = 0; i < size_; ++i) {
    if (board_->listeners[i].pingDescriptor >= 0) close(board_->listeners[i].pingDescriptor);
    if (board_->listeners[i].endDescriptor >= 0) close(board_->listeners[i].endDescriptor);
  }
  munmap(board_, sizeof(Board));
  close(descriptor_);
}

void Audience::waitUntilReady() {
  const auto begin = monotonicNanoseconds();
  for (std::size_t i = 0; i < size_; ++i) {
    while (board_->listeners[i].isReady == 0) {
      if (monotonicNanoseconds() - begin > kLongestWait) throw SetupError("a listener is missing");
      const auto seen = board_->bell.load();
      if (board_->listeners[i].isReady == 0) sleepSince(*board_, seen);
    }
  }
}

void Audience::count(int Board::Listener::*descriptor) {
  for (std::size_t i = 0; i < size_; ++i) eventfd_write(board_->listeners[i].*descriptor, 1);
}

std::int64_t Audience::waitForAll(std::atomic<std::int64_t> Board::Listener::*when,
                                  std::int64_t since) {
  while (true) {
    const auto seen = board_->bell.load();
    std::int64_t first = INT64_MAX;
    std::int64_t last = 0;
    for (std::size_t i = 0; i < size_; ++i) {
      const std::int64_t heard = (board_->listeners[i].*when).load();
      first = std::min(first, heard);
      last = std::max(last, heard);
    }
    if (first >= since) return last;
    if (monotonicNanoseconds() - since > kLongestWait) throw SetupError("a callback is missing");
    sleepSince(*board_, seen);
  }
}

std::uint64_t Audience::pings() const {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < size_; ++i) sum += board_->listeners[i].pings;
  return sum;
}

int listen(const std::vector<std::string>& arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const auto way = static_cast<Way>(std::stoi(arguments.at(0)));
  Board* const board = mapBoard(std::stoi(arguments.at(1)));
  Seat seat{board, &board->listeners.at(std::stoul(arguments.at(2)))};
  takeSeat(seat, way, arguments.at(3));
  seat.listener->isReady = 1;
  ring(*board);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
}

}  // namespace tervano::bench
