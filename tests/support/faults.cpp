#include "faults.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace faults {

// The sanitizers' run-time calls some of these functions before the objects
// below exist and after they are gone.
constinit std::atomic<bool> ready{false};

namespace {

std::vector<CallBase *> &Registry() {
  static std::vector<CallBase *> registry;
  return registry;
}

SpinLock log_lock;
// Fixed, so that logging a call of malloc does not call malloc.
constexpr size_t kLogMax = 4096;
const char *log_names[kLogMax];
size_t log_count = 0;

class ResetAfterTest : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo &) override { ResetAll(); }
};

const bool listening = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new ResetAfterTest);
  return true;
}();

}  // namespace

CallBase::CallBase(const char *name) : name_(name) {
  Registry().push_back(this);
}

int &ErrnoOfThread() {
  return errno;
}

void LogCall(const char *name) {
  log_lock.lock();
  if (log_count < kLogMax)
    log_names[log_count] = name;
  ++log_count;
  log_lock.unlock();
}

void Record() {
  log_lock.lock();
  log_count = 0;
  log_lock.unlock();
  for (CallBase *call : Registry()) {
    call->count_ = 0;
    call->armed_ = true;
  }
}

std::vector<std::string> Log() {
  log_lock.lock();
  size_t count = log_count;
  log_lock.unlock();
  if (count > kLogMax) {
    ADD_FAILURE() << count << " calls were made, and " << kLogMax << " have room in the log";
    count = kLogMax;
  }
  return {log_names, log_names + count};
}

void ResetAll() {
  for (CallBase *call : Registry())
    call->Reset();
  log_lock.lock();
  log_count = 0;
  log_lock.unlock();
}

}  // namespace faults

#define FAULT_CALL(result, name, parameters, arguments)                            \
  extern "C" result __real_##name parameters;                                      \
  namespace faults {                                                               \
  Call<result parameters> name{#name, __real_##name};                              \
  }                                                                                \
  extern "C" result __wrap_##name parameters;                                      \
  extern "C" result __wrap_##name parameters {                                     \
    return faults::ready ? faults::name.Enter arguments : __real_##name arguments; \
  }
#include "fault_calls.inc"
#undef FAULT_CALL

extern "C" sem_t *__real_sem_open(const char *name, int flags, ...);
extern "C" sem_t *__wrap_sem_open(const char *name, int flags, ...);

namespace faults {
Call<sem_t *(const char *, int, mode_t, unsigned)> sem_open{
    "sem_open", [](const char *name, int flags, mode_t mode, unsigned value) -> sem_t * {
      return __real_sem_open(name, flags, mode, value);
    }};
}

extern "C" sem_t *__wrap_sem_open(const char *name, int flags, ...) {
  mode_t mode = 0;
  unsigned value = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    value = va_arg(arguments, unsigned);
    va_end(arguments);
  }
  if (!faults::ready)
    return __real_sem_open(name, flags, mode, value);
  return faults::sem_open.Enter(name, flags, mode, value);
}

extern "C" mqd_t __real_mq_open(const char *name, int flags, ...);
extern "C" mqd_t __wrap_mq_open(const char *name, int flags, ...);

namespace faults {
Call<mqd_t(const char *, int, mode_t, struct mq_attr *)> mq_open{
    "mq_open", [](const char *name, int flags, mode_t mode, struct mq_attr *attributes) {
      return __real_mq_open(name, flags, mode, attributes);
    }};
}

extern "C" mqd_t __wrap_mq_open(const char *name, int flags, ...) {
  mode_t mode = 0;
  struct mq_attr *attributes = nullptr;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    attributes = va_arg(arguments, struct mq_attr *);
    va_end(arguments);
  }
  if (!faults::ready)
    return __real_mq_open(name, flags, mode, attributes);
  return faults::mq_open.Enter(name, flags, mode, attributes);
}

namespace faults {
namespace {
// Made last and gone first.
const struct AllMade {
  AllMade() { ready = true; }
  ~AllMade() { ready = false; }
} all_made;
}  // namespace
}  // namespace faults
