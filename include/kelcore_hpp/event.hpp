/// @file
/// kel::event: wake-ups that are counted, never lost and never merged.
///
///     kel::event done = kel::event::create().value_or_throw();
///     done.send();                  // worker
///     if (done.wait(1s)) ...        // controller
///
/// Where it differs from the C calls:
///  - An endless wait goes on when a signal interrupts it.
///  - A wait with no_wait that finds nothing is a time-out (-1 from KEL_EventWait, as for
///    failures).
///  - leave() gives a named event up without removing the name.
#ifndef KELCORE_HPP_EVENT_HPP
#define KELCORE_HPP_EVENT_HPP

#include <cstdint>

#include "../kelcore_event.h"
#include "owner.hpp"
#include "result.hpp"
#include "sema.hpp"
#include "timeout.hpp"

namespace kel {

class event : public owner<KEL_SEMA, &KEL_EventDestroy> {
 public:
  using owner::owner;

  /// An event of this process, without pending wake-ups.
  static result<event> create() { return detail::owned<event>(KEL_EventCreate(nullptr)); }

  /// The system's event of that name (it begins with '/'), made if missing. Its
  /// owner's end removes the name.
  static result<event> open(const char *name) {
    return detail::opened<event>([&] { return KEL_EventCreate(name); });
  }

  /// Takes one wake-up, waiting at most `limit`. The status tells a time-out, also of
  /// no_wait, from another failure.
  [[nodiscard]] status wait(timeout limit) {
    if (!limit.is_infinite())
      return detail::waited(KEL_EventWait(native_handle(), limit.native()), limit);
    return detail::wait_through_signals(
        [this] { return KEL_EventWait(native_handle(), KEL_WAIT_FOREVER); });
  }

  /// Adds a wake-up. Never blocks; may be called from a signal handler.
  status send() { return status(KEL_EventSend(native_handle())); }

  /// Wake-ups not yet taken; 0 for an empty owner.
  int32_t pending() const {
    int32_t sends = 0;
    return KEL_EventStatus(native_handle(), &sends) == 0 ? sends : 0;
  }

  /// Lets go without removing the name: later openers find the event as it is. Only for
  /// one that has a name; see semaphore::leave().
  status leave() noexcept { return detail::given_up(*this); }
};

}  // namespace kel

#endif
