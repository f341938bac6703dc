// Says ten times a second that it is time to show how far things are.
#pragma once

#include <kelcore_time.h>

#include <atomic>
#include <memory>

namespace kelstream {

class Ticker {
 public:
  // Ticks only when somebody looks.
  explicit Ticker(bool wanted);

  // True once for each tick. A tick also ends the main thread's waiting.
  bool Due() { return due_.exchange(false, std::memory_order_relaxed); }

 private:
  // In signal context: nothing but the flag.
  static void OnTimer(void *self) {
    static_cast<Ticker *>(self)->due_.store(true, std::memory_order_relaxed);
  }

  struct Destroy {
    void operator()(KEL_TIMER *timer) const { KEL_TimerDestroy(timer); }
  };
  std::atomic<bool> due_ = false;
  std::unique_ptr<KEL_TIMER, Destroy> timer_;
};

}  // namespace kelstream
