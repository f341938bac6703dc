/// @file
/// Time-outs: std::chrono durations where the C calls take milliseconds.
///
///     if (events.wait(50ms)) ...
///     if (events.wait(kel::no_wait)) ...
///     events.wait(kel::infinite).or_throw();
#ifndef KELCORE_HPP_TIMEOUT_HPP
#define KELCORE_HPP_TIMEOUT_HPP

#include <chrono>
#include <cstdint>
#include <type_traits>

#include "../kelcore_types.h"

namespace kel {

/// How long a call may wait. A duration converts to it:
///  - rounded up to whole milliseconds, so that no wait is shorter than asked;
///  - zero and less: tries once, does not wait (between processes: waits 1 ms at most);
///  - more than about 24 days: that long. Only kel::infinite waits for ever.
/// Waits end by the system's wall clock: setting it forward shortens them.
class timeout {
 public:
  template <class Rep, class Period>
  constexpr timeout(std::chrono::duration<Rep, Period> wait) noexcept
      : ms_(whole_milliseconds(wait)) {}

  /// From the C calls' milliseconds.
  static constexpr timeout from_native(uint32_t ms) noexcept { return timeout(ms); }

  /// What the C calls take.
  constexpr uint32_t native() const noexcept { return ms_; }
  /// Whether it waits for ever.
  constexpr bool is_infinite() const noexcept { return ms_ == KEL_WAIT_FOREVER; }

 private:
  constexpr explicit timeout(uint32_t ms) noexcept : ms_(ms) {}

  template <class Rep, class Period>
  static constexpr uint32_t whole_milliseconds(
      std::chrono::duration<Rep, Period> wait) noexcept {
    // Compared in the duration's own unit, where nothing overflows.
    using wide = std::chrono::duration<std::common_type_t<Rep, int64_t>, Period>;
    constexpr std::chrono::milliseconds kLongest(KEL_WAIT_FOREVER - 1);
    if (wait <= wait.zero())
      return 0;
    if (wide(wait) >= std::chrono::duration_cast<wide>(kLongest))
      return KEL_WAIT_FOREVER - 1;
    return static_cast<uint32_t>(
        std::chrono::ceil<std::chrono::milliseconds>(wide(wait)).count());
  }

  uint32_t ms_;
};

/// Waits without limit.
inline constexpr timeout infinite = timeout::from_native(KEL_WAIT_FOREVER);
/// Tries once and does not wait.
inline constexpr timeout no_wait = timeout::from_native(0);

namespace detail {

/// Follows one limit through several waits, by a clock that nobody sets.
class countdown {
 public:
  explicit countdown(timeout limit)
      : limit_(limit),
        end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(limit.native())) {}

  /// What is left of it; infinite stays infinite.
  timeout left() const {
    return limit_.is_infinite() ? limit_ : timeout(end_ - std::chrono::steady_clock::now());
  }

 private:
  timeout limit_;
  std::chrono::steady_clock::time_point end_;
};

}  // namespace detail

}  // namespace kel

#endif
