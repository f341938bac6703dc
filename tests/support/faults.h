// Makes C functions that the library calls fail, or behave otherwise.
//
// The tests link the static library with the linker's --wrap for every function
// listed in fault_calls.inc, so each call goes through an object of the same
// name in namespace faults:
//
//     faults::sem_init.Fail(-1, EINVAL);            // every call from now on
//     faults::malloc.Fail(nullptr, ENOMEM, 2, 1);   // only the third call
//     faults::sem_wait.Replace([](sem_t *s) { ...; return faults::sem_wait.Real(s); });
//     EXPECT_EQ(faults::sem_open.Count(), 2);
//
// Everything is back to normal when the test ends. While an effect is set, or
// faults::Record() is on, calls are counted and logged.
#pragma once

#include <dirent.h>
#include <dlfcn.h>
#include <mqueue.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <time.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace faults {

inline constexpr int kForever = 1 << 30;

// A lock of spinning alone: the wrapped functions include those that real locks
// are made of.
class SpinLock {
 public:
  void lock() {
    while (flag_.test_and_set(std::memory_order_acquire)) {
    }
  }
  void unlock() { flag_.clear(std::memory_order_release); }

 private:
  std::atomic_flag flag_ = ATOMIC_FLAG_INIT;
};

class CallBase {
 public:
  explicit CallBase(const char *name);
  virtual ~CallBase() = default;
  CallBase(const CallBase &) = delete;
  CallBase &operator=(const CallBase &) = delete;
  virtual void Reset() = 0;
  const char *name() const { return name_; }
  // Calls since the effect was set or recording began.
  int Count() const { return count_.load(); }

 protected:
  friend void Record();
  const char *name_;
  std::atomic<bool> armed_{false};
  std::atomic<int> count_{0};
};

// Counts and logs the calls of all wrapped functions from now on.
void Record();
// The names of the functions called since Record(), in order.
std::vector<std::string> Log();
// Ends every effect and the recording; runs after each test by itself.
void ResetAll();
// Used by the wrappers.
void LogCall(const char *name);

template <typename F>
class Call;

template <typename R, typename... A>
class Call<R(A...)> : public CallBase {
 public:
  using Function = R(A...);
  Call(const char *name, Function *real) : CallBase(name), real_(real) {}

  // The calls after the first `skip` give `result` with errno `error` (0 leaves
  // errno alone), `times` times.
  void Fail(std::conditional_t<std::is_void_v<R>, int, R> result, int error, int skip = 0,
            int times = kForever) {
    auto left = std::make_shared<std::pair<std::atomic<int>, std::atomic<int>>>(skip, times);
    Function *real = real_;
    Replace([=](A... args) -> R {
      if (left->first.fetch_sub(1) > 0 || left->second.fetch_sub(1) <= 0)
        return real(args...);
      if (error != 0)
        errno_value() = error;
      if constexpr (!std::is_void_v<R>)
        return result;
    });
  }
  void Replace(std::function<Function> replacement) {
    auto shared = std::make_shared<std::function<Function>>(std::move(replacement));
    lock_.lock();
    replacement_.swap(shared);
    lock_.unlock();
    count_ = 0;
    armed_ = true;
  }
  void Reset() override {
    std::shared_ptr<std::function<Function>> old;
    lock_.lock();
    replacement_.swap(old);
    lock_.unlock();
    armed_ = false;
    count_ = 0;
  }
  R Real(A... args) { return real_(args...); }

  R Enter(A... args) {
    if (!armed_.load(std::memory_order_acquire))
      return real_(args...);
    ++count_;
    LogCall(name_);
    lock_.lock();
    std::shared_ptr<std::function<Function>> effect = replacement_;
    lock_.unlock();
    return effect ? (*effect)(args...) : real_(args...);
  }

 private:
  static int &errno_value();
  Function *real_;
  SpinLock lock_;
  std::shared_ptr<std::function<Function>> replacement_;
};

int &ErrnoOfThread();
template <typename R, typename... A>
int &Call<R(A...)>::errno_value() {
  return ErrnoOfThread();
}

#define FAULT_CALL(result, name, parameters, arguments) extern Call<result parameters> name;
#include "fault_calls.inc"
#undef FAULT_CALL

// sem_open is variadic in C; here its last two arguments are always there.
extern Call<sem_t *(const char *, int, mode_t, unsigned)> sem_open;

// So is mq_open.
extern Call<mqd_t(const char *, int, mode_t, struct mq_attr *)> mq_open;

}  // namespace faults
