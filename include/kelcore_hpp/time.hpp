/// @file
/// kel::timer, and the library's clock for std::chrono.
///
///     void tick(kel::event &due) { due.send(); }
///     auto t = kel::timer::create<tick>(20ms, due).value_or_throw();
///     t.start_periodic();
///
/// Callbacks run in SIGNAL CONTEXT, on whatever thread receives the timer signal
/// (SIGRTMIN + 4): set a flag or send an event, take no locks, be brief. The signal
/// ends endless waits of the C calls early on interrupted threads; the waits of these
/// headers go on where they say so.
///
/// Where it differs from the C calls: an interval of zero is the shortest there is, a
/// microsecond; KEL_TimerStart keeps the stored one then, or disarms.
#ifndef KELCORE_HPP_TIME_HPP
#define KELCORE_HPP_TIME_HPP

#include <chrono>
#include <cstdint>

#include "../kelcore_time.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

/// Time since an arbitrary start that setting the clock does not change, in the
/// microseconds that the library's traces and timers live by.
struct tick_clock {
  using duration = std::chrono::microseconds;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<tick_clock>;
  /// As std::chrono asks of a clock.
  static constexpr bool is_steady = true;

  /// The ticks as of now.
  static time_point now() noexcept {
    return time_point(duration(static_cast<rep>(KEL_GetSystemTickUS())));
  }
};

class timer : public owner<KEL_TIMER, &KEL_TimerDestroy> {
 public:
  using owner::owner;

  /// A timer, not yet armed, that will call `callback(arg)` after `interval`, rounded
  /// up to microseconds. Its end waits for a callback that runs on another thread.
  template <class Rep, class Period>
  static result<timer> create(std::chrono::duration<Rep, Period> interval,
                              KEL_TIMER_CALLBACK callback, void *arg) {
    if (callback == nullptr)
      return std::errc::invalid_argument;
    return detail::opened<timer>(
        [&] { return KEL_TimerCreate(whole_microseconds(interval), callback, arg); });
  }

  /// As create(), typed: calls `Callback(object)`, the object staying where it is as
  /// long as the timer.
  template <auto Callback, class Rep, class Period, class T>
  static result<timer> create(std::chrono::duration<Rep, Period> interval, T &object) {
    return create(
        interval, [](void *arg) { Callback(*static_cast<T *>(arg)); }, &object);
  }

  /// Arms the timer, or arms it anew, with its interval: for one callback, or for one
  /// after each interval. Expiries that meet one still pending give one callback.
  status start_once() { return start(0, 0); }
  status start_periodic() { return start(0, 1); }

  /// As above with another interval, which stays.
  template <class Rep, class Period>
  status start_once(std::chrono::duration<Rep, Period> interval) {
    return start(whole_microseconds(interval), 0);
  }
  template <class Rep, class Period>
  status start_periodic(std::chrono::duration<Rep, Period> interval) {
    return start(whole_microseconds(interval), 1);
  }

  /// Disarms the timer.
  status stop() { return status(KEL_TimerStop(native_handle())); }

 private:
  status start(uint64_t interval, uint32_t loop) {
    return status(KEL_TimerStart(native_handle(), interval, loop, nullptr, nullptr));
  }

  template <class Rep, class Period>
  static uint64_t whole_microseconds(std::chrono::duration<Rep, Period> interval) {
    if (interval <= interval.zero())
      return 1;
    return static_cast<uint64_t>(
        std::chrono::ceil<std::chrono::microseconds>(interval).count());
  }
};

}  // namespace kel

#endif
