// Signals reach the main thread alone: the others are not to be interrupted
// when they read files or wait for each other.
#pragma once

#include <csignal>

namespace kelstream {

// Blocks signals for this thread, and for those that it starts meanwhile.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  // That one alone.
  explicit SignalsBlocked(int signal) {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    pthread_sigmask(SIG_BLOCK, &one, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked &) = delete;
  SignalsBlocked &operator=(const SignalsBlocked &) = delete;

 private:
  sigset_t before_;
};

}  // namespace kelstream
