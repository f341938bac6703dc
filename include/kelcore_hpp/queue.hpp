/// @file
/// kel::queue<T *>: a thread-safe FIFO of pointers, each with a number.
///
///     auto jobs = kel::queue<job *>::create("jobs", 64).value_or_throw();
///     jobs.push(&j, 7).or_throw();       // any thread
///     if (job *next = jobs.pop(1s)) ...  // one consumer at a time
///
/// What the pointers refer to stays the caller's. One consumer at a time: of two
/// that sleep only one is woken per push, the other waits its time out.
///
/// Where it differs from the C calls:
///  - peek() of an empty queue returns null; KEL_QueuePeek keeps the queue locked.
///  - pop_for() comes back empty only when its time is over; pop(), as the C call,
///    also for a wake() of long ago, or for a signal.
#ifndef KELCORE_HPP_QUEUE_HPP
#define KELCORE_HPP_QUEUE_HPP

#include <cassert>
#include <cstdint>

#include "../kelcore_queue.h"
#include "owner.hpp"
#include "result.hpp"
#include "timeout.hpp"

namespace kel {

template <class Pointer>
class queue;

/// @tparam T  what the pointers refer to; may be const-qualified.
template <class T>
class queue<T *> : public owner<KEL_QUEUE, &KEL_QueueDestroy> {
 public:
  using owner::owner;

  /// What pop_entry() takes: converts to false when there was nothing.
  struct entry {
    T *data = nullptr;   ///< null when there was nothing
    int32_t number = 0;  ///< what went in with it
    constexpr explicit operator bool() const noexcept { return data != nullptr; }
  };

  /// A queue of at most `capacity` entries, all made now; 0 for no limit, and memory
  /// taken at each push. The name (copied, may be null) is for traces.
  static result<queue> create(const char *name, uint32_t capacity) {
    return detail::owned<queue>(KEL_QueueCreate(name, capacity));
  }

  /// Appends `data`, which is not null: takers could not tell it from "nothing". Never
  /// waits for room. Fails when the queue is full or memory is short.
  [[nodiscard]] status push(T *data, int32_t number = 0) {
    assert(data != nullptr);
    return status(KEL_QueuePush(native_handle(), untyped(data), number));
  }

  /// As push(), in front of all others.
  [[nodiscard]] status push_front(T *data, int32_t number = 0) {
    assert(data != nullptr);
    return status(KEL_QueuePush2Head(native_handle(), untyped(data), number));
  }

  /// Takes the oldest, waiting at most `wait` for one; null when there was none. May
  /// come back empty before its time: after a wake(), or a signal.
  [[nodiscard]] T *pop(timeout wait) {
    return typed(KEL_QueuePop(native_handle(), nullptr, wait.native()));
  }

  /// As pop(); writes the number that went in with it, unless there was nothing.
  [[nodiscard]] T *pop(int32_t &number, timeout wait) {
    return typed(KEL_QueuePop(native_handle(), &number, wait.native()));
  }

  /// As pop(), pointer and number in one.
  [[nodiscard]] entry pop_entry(timeout wait) {
    int32_t number = 0;
    T *data = pop(number, wait);
    return {data, number};
  }

  /// As pop_entry(), but empty only when all of `wait` has passed by the steady clock.
  [[nodiscard]] entry pop_for(timeout wait) {
    const detail::countdown countdown(wait);
    for (;;) {
      const timeout left = countdown.left();
      const entry taken = pop_entry(left);
      if (taken || left.native() == 0)
        return taken;
    }
  }

  /// Takes the newest. Not to be mixed with pop() on a queue without limit: the order
  /// is not promised then.
  [[nodiscard]] T *pop_back(timeout wait) {
    return typed(KEL_QueuePopTail(native_handle(), nullptr, wait.native()));
  }

  /// The oldest, which stays; empty when there is none. For the one consumer: others
  /// might take the last entry between the look and the peek.
  [[nodiscard]] entry peek() {
    entry oldest;
    if (!empty())
      oldest.data = typed(KEL_QueuePeek(native_handle(), &oldest.number));
    return oldest;
  }

  /// Makes a sleeping pop() return empty-handed, so that its thread can see that it
  /// should end. Without a sleeper the next pop() that would sleep does so. Takes no
  /// lock.
  void wake() { KEL_QueuePopRelease(native_handle()); }

  /// Drops every entry.
  void clear() { KEL_QueueReset(native_handle()); }

  /// As of now; without a lock. A queue without limit is never full.
  uint32_t size() const { return static_cast<uint32_t>(KEL_QueueGetSize(native_handle())); }
  bool empty() const { return KEL_QueueEmpty(native_handle()) != 0; }
  bool full() const { return KEL_QueueFull(native_handle()) != 0; }

  /// The queue's own copy; null when it has none.
  const char *name() const { return KEL_QueueGetName(native_handle()); }

 private:
  static T *typed(void *data) noexcept { return static_cast<T *>(data); }
  static void *untyped(T *data) noexcept {
    return const_cast<void *>(static_cast<const volatile void *>(data));
  }
};

}  // namespace kel

#endif
