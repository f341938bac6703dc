/// @file
/// kel::semaphore: a counting semaphore, private or shared by name.
///
///     kel::semaphore items = kel::semaphore::create(0).value_or_throw();
///     items.put();                           // any thread
///     if (items.try_acquire_for(100ms)) ...  // another one
///
/// Any number of threads may acquire and release at once. Destroy it when nobody
/// waits.
///
/// Where it differs from the C calls:
///  - acquire() goes on when a signal interrupts it (KEL_SemaGet returns -1 then).
///  - get() of an empty semaphore with no_wait is a time-out (-1 from KEL_SemaGet, as for
///    failures).
///  - try_acquire() of an empty semaphore says so without an error trace.
///  - leave() gives a named semaphore up without removing the name.
#ifndef KELCORE_HPP_SEMA_HPP
#define KELCORE_HPP_SEMA_HPP

#include <cerrno>
#include <cstdint>

#include "../kelcore_sema.h"
#include "owner.hpp"
#include "result.hpp"
#include "timeout.hpp"

namespace kel {

namespace detail {

/// Repeats an endless wait that a signal interrupted.
template <class Wait>
status wait_through_signals(Wait &&wait) {
  int32_t taken = 0;
  do
    taken = wait();
  while (taken == -1 && errno == EINTR);
  return status(taken);
}

/// What a bounded wait came to. When there is nothing to take the C calls say -1 to
/// no_wait, and to any other limit that the time is over.
constexpr status waited(int32_t taken, timeout limit) noexcept {
  return taken == -1 && limit.native() == 0 ? status(std::errc::timed_out) : status(taken);
}

/// For owners whose release removes a name from the system.
template <class Owner>
status given_up(Owner &named) noexcept {
  return named.release() != nullptr ? status() : status(std::errc::invalid_argument);
}

}  // namespace detail

class semaphore : public owner<KEL_SEMA, &KEL_SemaDestroy> {
 public:
  using owner::owner;

  /// A semaphore of this process with `count` units.
  static result<semaphore> create(uint32_t count) {
    return detail::owned<semaphore>(KEL_SemaCreate(nullptr, count));
  }

  /// The system's semaphore of that name (it begins with '/'): made with `count`
  /// units if missing, else as it is. Its owner's end removes the name, so that
  /// later openers get a new one; so does a failure.
  static result<semaphore> open(const char *name, uint32_t count) {
    return detail::opened<semaphore>([&] { return KEL_SemaCreate(name, count); });
  }

  /// As open(), but only one that exists. A failure removes the name.
  static result<semaphore> open_existing(const char *name) {
    return detail::opened<semaphore>([&] { return KEL_SemaCreate_Custom(name, 0, 0); });
  }

  /// Takes a unit, waiting at most `wait`. The status tells a time-out, also of no_wait,
  /// from another failure; a signal that interrupts an endless wait is one.
  [[nodiscard]] status get(timeout wait) {
    return detail::waited(KEL_SemaGet(native_handle(), wait.native()), wait);
  }

  /// Takes a unit, waiting without limit, whatever signals come.
  status acquire() {
    return detail::wait_through_signals(
        [this] { return KEL_SemaGet(native_handle(), KEL_WAIT_FOREVER); });
  }

  /// Takes a unit if there is one; tells whether. Never blocks. Traces an error only
  /// when another thread is quicker between the look and the taking.
  [[nodiscard]] bool try_acquire() {
    return count() > 0 && KEL_SemaGet(native_handle(), 0) == 0;
  }

  /// Takes a unit, waiting at most `wait`; tells whether.
  [[nodiscard]] bool try_acquire_for(timeout wait) {
    if (wait.is_infinite())
      return acquire().ok();
    return wait.native() != 0 ? get(wait).ok() : try_acquire();
  }

  /// Gives a unit. Fails when the count is at its limit. Never blocks.
  status put() { return status(KEL_SemaPut(native_handle())); }

  /// The units that can be taken; 0 for an empty owner.
  int32_t count() const {
    int32_t units = 0;
    return KEL_SemaStatus(native_handle(), &units) == 0 ? units : 0;
  }

  /// Takes what there is at the call. Units given meanwhile stay; it blocks when
  /// another thread takes units meanwhile.
  void drain() { KEL_SemaReset(native_handle()); }

  /// Lets go without removing the name: later openers find the semaphore as it is. Only
  /// for one that has a name. The C calls release it with the name or not at all: a page
  /// of memory stays taken until the process ends. Fails for an empty owner.
  status leave() noexcept { return detail::given_up(*this); }
};

}  // namespace kel

#endif
