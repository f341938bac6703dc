/// @file
/// kel::thread_pool: a fixed set of workers, one job at a time each.
///
///     auto pool = kel::thread_pool::create("decoder", 4).value_or_throw();
///     kel::result<int32_t> worker = pool.run<decode>(frame);  // int32_t decode(Frame &)
///     kel::result<int32_t> done = pool.collect(*worker);      // waits for the job
///
/// Jobs are not queued: without an idle worker run() refuses. A worker whose job has
/// ended stays busy until it is collected. One controlling thread runs, collects and
/// destroys. A job returns: one that ends its thread leaves its collector waiting.
///
/// Where it differs from the C calls: the destructor collects every job first, so
/// that none is dropped; KEL_ThreadPool_Delete drops those that have not begun.
#ifndef KELCORE_HPP_THREADPOOL_HPP
#define KELCORE_HPP_THREADPOOL_HPP

#include <cstdint>
#include <utility>

#include "../kelcore_threadpool.h"
#include "owner.hpp"
#include "result.hpp"

namespace kel {

class thread_pool : public owner<KEL_THREADPOOL, &KEL_ThreadPool_Delete> {
 public:
  thread_pool() noexcept = default;
  /// Takes over a pool of `workers` workers.
  thread_pool(KEL_THREADPOOL *pool, int32_t workers) noexcept
      : owner(pool), workers_(workers) {}
  thread_pool(thread_pool &&) noexcept = default;
  thread_pool &operator=(thread_pool &&other) noexcept {
    if (this != &other) {
      collect_all();
      workers_ = other.workers_;
      owner::operator=(std::move(other));
    }
    return *this;
  }
  /// Waits for all jobs, ends the workers. Not from a job.
  ~thread_pool() { collect_all(); }

  /// Starts `workers` (1 and more) threads named "<prefix>_rt_0000" and on; the system
  /// shows 14 characters. Priority and stack size are those of kel::thread_options.
  static result<thread_pool> create(const char *prefix, int32_t workers, uint32_t priority = 0,
                                    uint32_t stack_size = 0) {
    if (workers < 1)
      return std::errc::invalid_argument;
    KEL_THREADPOOL *made = KEL_ThreadPool_Create(prefix, priority, stack_size, workers);
    if (made == nullptr)
      return errc::thread_create;
    return thread_pool(made, workers);
  }

  /// Hands `job(arg)` to the worker that has been idle longest; gives its number. Fails
  /// with std::errc::device_or_resource_busy when none is idle. Never blocks.
  result<int32_t> run(KEL_JOB job, void *arg) {
    const int32_t number = KEL_ThreadPool_Run(native_handle(), job, arg);
    if (number < 0)
      return std::errc::device_or_resource_busy;
    return number;
  }

  /// As run(), typed: `Job(argument)` with the argument's address, which stays valid
  /// until the job is collected.
  template <auto Job, class T>
  result<int32_t> run(T &argument) {
    return run([](void *arg) -> int32_t { return Job(*static_cast<T *>(arg)); }, &argument);
  }

  /// Waits for the job of that worker without limit; gives what it returned. The worker
  /// is idle again then. Fails when it has no job.
  result<int32_t> collect(int32_t worker) {
    int32_t returned = 0;
    const status collected(KEL_ThreadPool_Stop(native_handle(), worker, &returned));
    if (!collected)
      return collected;
    return returned;
  }

  /// How many threads the pool has.
  int32_t workers() const noexcept { return workers_; }

 private:
  void collect_all() {
    for (int32_t worker = 0; *this && worker < workers_; ++worker)
      KEL_ThreadPool_Stop(native_handle(), worker, nullptr);
  }

  int32_t workers_ = 0;
};

}  // namespace kel

#endif
