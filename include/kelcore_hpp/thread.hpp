/// @file
/// kel::thread: a thread that is joined when its owner ends.
///
///     auto t = kel::thread::start({"reader"}, [&] { run(job); }).value_or_throw();
///     ...
///     t.join().value_or_throw();   // or leave it to the destructor, which waits as well
///
/// Any thread may start others; one joins, or detaches, each.
///
/// Where it differs from the C calls: detach() releases the handle, which
/// KEL_ThreadDetach leaves behind.
#ifndef KELCORE_HPP_THREAD_HPP
#define KELCORE_HPP_THREAD_HPP

#include <chrono>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "../kelcore_mem.h"
#include "../kelcore_thread.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

/// How a thread is made; all zero is a plain one.
struct thread_options {
  const char *name = nullptr;  ///< what the system shows, cut to 14 characters
  uint32_t priority = 0;       ///< 0 as the caller; else SCHED_FIFO, which needs the privilege
  uint32_t stack_size = 0;     ///< bytes; 0 for the system's default
};

namespace detail {

inline void join_and_release(KEL_THREAD *thread) {
  KEL_ThreadDelete(thread, nullptr);
}

/// The C entry of a thread that runs a callable on the heap.
template <class F>
void *run_and_delete(void *callable) {
  const std::unique_ptr<F> owned(static_cast<F *>(callable));
  if constexpr (std::is_convertible_v<std::invoke_result_t<F &>, void *>) {
    return (*owned)();
  } else {
    static_cast<void>((*owned)());
    return nullptr;
  }
}

}  // namespace detail

class thread : public owner<KEL_THREAD, &detail::join_and_release> {
 public:
  using owner::owner;

  /// Starts `entry(arg)`: the C call as it is. Fails with errc::thread_create.
  static result<thread> start(const thread_options &options, KEL_THREAD_ENTRY entry,
                              void *arg) {
    KEL_THREAD *made =
        KEL_ThreadCreate(options.name, options.priority, options.stack_size, entry, arg);
    if (made == nullptr)
      return errc::thread_create;
    return thread(made);
  }

  /// Starts a copy of `callable`, which is kept on the heap meanwhile. When it returns
  /// a pointer, join() gives it.
  template <class F>
  static result<thread> start(const thread_options &options, F &&callable) {
    using callable_type = std::decay_t<F>;
    std::unique_ptr<callable_type> copy(new (std::nothrow)
                                            callable_type(std::forward<F>(callable)));
    if (copy == nullptr)
      return errc::out_of_memory;
    auto started = start(options, &detail::run_and_delete<callable_type>, copy.get());
    if (started)
      static_cast<void>(copy.release());
    return started;
  }

  /// Waits without limit for the thread to end; gives what it returned, or its exit
  /// code. The owner is empty afterwards, also on failure.
  result<void *> join() {
    void *returned = nullptr;
    const status joined(KEL_ThreadDelete(release(), &returned));
    if (!joined)
      return joined;
    return returned;
  }

  /// Lets the thread run on its own; the owner is empty then.
  status detach() {
    const status detached(KEL_ThreadDetach(native_handle()));
    if (detached)
      KEL_Free(release(), 0);  // the thread does without its handle
    return detached;
  }
};

namespace this_thread {

/// Sleeps for all of `time`, rounded up to microseconds, whatever signals come; zero
/// and less only yield.
template <class Rep, class Period>
status sleep_for(std::chrono::duration<Rep, Period> time) {
  using std::chrono::microseconds;
  using std::chrono::milliseconds;
  constexpr uint32_t kMost = UINT32_MAX;
  if (time <= time.zero())
    return status(KEL_ThreadSleep(0));
  if (time <= microseconds(kMost))
    return status(
        KEL_ThreadUSleep(static_cast<uint32_t>(std::chrono::ceil<microseconds>(time).count())));
  for (auto left = std::chrono::ceil<milliseconds>(time); left > left.zero();) {
    const milliseconds part = left < milliseconds(kMost) ? left : milliseconds(kMost);
    if (const status slept(KEL_ThreadSleep(static_cast<uint32_t>(part.count()))); !slept)
      return slept;
    left -= part;
  }
  return {};
}

}  // namespace this_thread

}  // namespace kel

#endif
