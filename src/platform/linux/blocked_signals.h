#pragma once

#include <pthread.h>

#include <csignal>

namespace tervano {

// While it lives, the calling thread has all signals blocked, and so have for good the threads that
// it starts: no signal of the host may be handled on a thread of ours.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

 private:
  sigset_t previous_;
};

}  // namespace tervano
