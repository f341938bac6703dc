/// @file
/// Results: kel::status for "done or not", kel::result<T> for "a value or why not".
///
///     kel::result<kel::mutex> made = kel::mutex::create();
///     if (!made) return made.error();
///     kel::mutex m = std::move(*made);
///
///     kel::mutex n = kel::mutex::create().value_or_throw();   // the only way to throw
///
/// Nothing here throws unless its name says so. Compiled without exceptions,
/// what would throw ends the program.
#ifndef KELCORE_HPP_RESULT_HPP
#define KELCORE_HPP_RESULT_HPP

#include <cassert>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <system_error>
#include <type_traits>
#include <utility>

#include "error.hpp"

namespace kel {

namespace detail {

[[noreturn]] inline void raise(int code) {
#if defined(__cpp_exceptions)
  throw std::system_error(code, category());
#else
  static_cast<void>(code);
  std::abort();
#endif
}

}  // namespace detail

/// What a C call returned: 0, or a failure. One word, passed in a register.
class status {
 public:
  constexpr status() noexcept = default;
  /// From a C result, which is kept as it is.
  constexpr explicit status(int32_t code) noexcept : code_(code) {}
  constexpr explicit status(uint32_t code) noexcept : code_(static_cast<int32_t>(code)) {}
  constexpr status(errc code) noexcept : code_(static_cast<int32_t>(code)) {}
  /// From std::errc: the errno value with its sign turned, as the C calls do.
  constexpr status(std::errc code) noexcept : code_(-static_cast<int32_t>(code)) {}

  /// Whether all is well.
  constexpr bool ok() const noexcept { return code_ == 0; }
  constexpr explicit operator bool() const noexcept { return ok(); }

  /// The C result.
  constexpr int32_t code() const noexcept { return code_; }
  /// The same for the standard.
  std::error_code error() const noexcept { return {code_, category()}; }

  /// Whether a wait ended for want of time, however the C call says it.
  constexpr bool timed_out() const noexcept {
    return code_ == static_cast<int32_t>(errc::timeout) || detail::errno_of(code_) == ETIMEDOUT;
  }

  /// @throws std::system_error on failure.
  void or_throw() const {
    if (!ok())
      detail::raise(code_);
  }

  friend constexpr bool operator==(status a, status b) noexcept { return a.code_ == b.code_; }
  friend constexpr bool operator!=(status a, status b) noexcept { return a.code_ != b.code_; }

 private:
  int32_t code_ = 0;
};

/// A value, or the failure that stands in its place. T is default constructible:
/// a failure carries an empty one, which keeps results of plain types plain.
template <class T>
class [[nodiscard]] result {
 public:
  using value_type = T;

  /// From a value, or from a failure (asserted).
  constexpr result(T value) : value_(std::move(value)) {}
  constexpr result(status failure) : status_(failure) { assert(!failure.ok()); }
  constexpr result(errc failure) : result(status(failure)) {}
  constexpr result(std::errc failure) : result(status(failure)) {}

  /// Whether there is a value.
  constexpr bool has_value() const noexcept { return status_.ok(); }
  constexpr explicit operator bool() const noexcept { return has_value(); }

  /// Only for a result that has a value (asserted).
  constexpr T &operator*() &noexcept { return checked(); }
  constexpr const T &operator*() const &noexcept {
    assert(has_value());
    return value_;
  }
  constexpr T &&operator*() &&noexcept { return std::move(checked()); }
  constexpr T *operator->() noexcept { return &checked(); }
  constexpr const T *operator->() const noexcept { return &**this; }

  /// The value, or `other` when there is none.
  constexpr T value_or(T other) && {
    return has_value() ? std::move(value_) : std::move(other);
  }
  constexpr T value_or(T other) const & { return has_value() ? value_ : std::move(other); }

  /// The value. @throws std::system_error when there is none.
  T value_or_throw() && {
    status_.or_throw();
    return std::move(value_);
  }

  /// What happened; ok when there is a value.
  constexpr status outcome() const noexcept { return status_; }
  /// The same for the standard.
  std::error_code error() const noexcept { return status_.error(); }

  /// `next(value)`, which returns a result of its own, or this one's failure.
  template <class F>
  auto and_then(F &&next) && -> std::invoke_result_t<F, T> {
    if (!has_value())
      return status_;
    return std::forward<F>(next)(std::move(value_));
  }

 private:
  constexpr T &checked() noexcept {
    assert(has_value());
    return value_;
  }

  T value_{};
  status status_;
};

namespace detail {

/// An owner for a handle that a C call made: its failures are null.
template <class Owner, class Handle>
result<Owner> owned(Handle *handle) {
  if (handle == nullptr)
    return errc::out_of_memory;
  return Owner(handle);
}

/// As owned(), for calls that fail for the system's reasons: `make()` with errno
/// cleared, so that what it leaves there is the reason.
template <class Owner, class Make>
result<Owner> opened(Make &&make) {
  const int before = errno;
  errno = 0;
  auto *handle = std::forward<Make>(make)();
  if (handle == nullptr)
    return errno != 0 ? status(-errno) : status(errc::fail);
  errno = before;
  return Owner(handle);
}

}  // namespace detail

}  // namespace kel

#endif
