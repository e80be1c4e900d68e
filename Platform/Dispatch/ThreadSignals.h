// The signals that threads of the module leave to the threads of the host.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <initializer_list>

namespace zorvane::platform {

// As long as this object lives, the calling thread blocks these signals. A thread that it starts meanwhile inherits
// that. Not blocked: SIGPROF, and the signals that a fault sends to its own thread. SIGXCPU, SIGPWR and real-time
// signals stay as they are: with them a garbage collector of the host (Mono, IL2CPP) stops threads that have called it.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF}) {
      sigdelset(&blocked, signal);
    }
    pthread_sigmask(SIG_SETMASK, nullptr, &before_);
    keep(SIGXCPU, blocked);
#if defined(__linux__)
    keep(SIGPWR, blocked);
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) keep(signal, blocked);
#endif
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
  }
  ~BlockedSignals() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  void keep(int signal, sigset_t& blocked) {
    if (sigismember(&before_, signal) == 0) sigdelset(&blocked, signal);
  }

  sigset_t before_;
};

}  // namespace zorvane::platform
