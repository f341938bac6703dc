#include "calls.h"

#include <errno.h>

#include <atomic>
#include <memory>
#include <type_traits>

#include "faults.h"

namespace {

template <typename Result, typename... Arguments>
FailingCall Failing(faults::Call<Result(Arguments...)> &call,
                    std::type_identity_t<Result> result, std::vector<int> errors,
                    bool allocates = false) {
  return {call.name(), allocates, std::move(errors),
          [&call, result](int error, int skip, int times) {
            call.Fail(result, error, skip, times);
          }};
}

template <typename Result, typename... Arguments>
FailingCall Allocating(faults::Call<Result(Arguments...)> &call) {
  return Failing(call, nullptr, {ENOMEM}, true);
}

// For calls that return the error.
template <typename... Arguments>
FailingCall Returning(faults::Call<int(Arguments...)> &call, std::vector<int> errors) {
  return {call.name(), false, std::move(errors),
          [&call](int error, int skip, int times) { call.Fail(error, 0, skip, times); }};
}

// For calls that release: they do it, and then tell of a failure.
template <typename... Arguments>
FailingCall Afterwards(faults::Call<int(Arguments...)> &call, int result,
                       std::vector<int> errors) {
  return {call.name(), false, std::move(errors),
          [&call, result](int error, int skip, int times) {
            auto left =
                std::make_shared<std::pair<std::atomic<int>, std::atomic<int>>>(skip, times);
            call.Replace([&call, left, result, error](Arguments... arguments) {
              const int real = call.Real(arguments...);
              if (left->first.fetch_sub(1) > 0 || left->second.fetch_sub(1) <= 0)
                return real;
              if (result != -1 && result != EOF)
                return error;
              errno = error;
              return result;
            });
          }};
}

constexpr int kReturnsTheError = 0;

}  // namespace

const std::vector<FailingCall> &FailingCalls() {
  namespace f = faults;
  static const std::vector<FailingCall> calls = {
      Allocating(f::malloc),
      Allocating(f::calloc),
      Allocating(f::realloc),
      Allocating(f::aligned_alloc),
      Allocating(f::strdup),
      Failing(f::clock_gettime, -1, {EINVAL}),
      Failing(f::time, time_t{-1}, {EOVERFLOW}),
      Returning(f::pthread_mutex_init, {ENOMEM, EAGAIN}),
      Failing(f::pthread_mutex_init, -1, {ENOMEM}),
      Afterwards(f::pthread_mutex_destroy, kReturnsTheError, {EBUSY}),
      Returning(f::pthread_mutex_trylock, {EBUSY, EINVAL}),
      Returning(f::pthread_mutex_timedlock, {EINVAL, EDEADLK}),
      Returning(f::pthread_attr_init, {ENOMEM}),
      Returning(f::pthread_attr_destroy, {EINVAL}),
      Returning(f::pthread_attr_setinheritsched, {EINVAL}),
      Returning(f::pthread_attr_setschedpolicy, {EINVAL}),
      Returning(f::pthread_attr_setscope, {ENOTSUP}),
      Returning(f::pthread_attr_setschedparam, {EINVAL}),
      Returning(f::pthread_attr_setstacksize, {EINVAL}),
      Returning(f::pthread_create, {EAGAIN, EPERM}),
      Afterwards(f::pthread_join, kReturnsTheError, {ESRCH}),
      Afterwards(f::pthread_detach, kReturnsTheError, {ESRCH}),
      Returning(f::pthread_setname_np, {ERANGE}),
      Failing(f::sem_init, -1, {EINVAL, ENOSPC}),
      Failing(f::sem_open, SEM_FAILED, {EACCES, EEXIST, ENOENT, EMFILE}),
      Afterwards(f::sem_close, -1, {EINVAL}),
      Afterwards(f::sem_unlink, -1, {ENOENT, EACCES}),
      Afterwards(f::sem_destroy, -1, {EINVAL}),
      Failing(f::sem_wait, -1, {EINTR, EINVAL}),
      Failing(f::sem_trywait, -1, {EAGAIN, EINTR, EINVAL}),
      Failing(f::sem_timedwait, -1, {ETIMEDOUT, EINTR, EINVAL}),
      Failing(f::sem_post, -1, {EOVERFLOW, EINVAL}),
      Failing(f::sem_getvalue, -1, {EINVAL}),
      Failing(f::sigaction, -1, {EINVAL}),
      Failing(f::timer_create, -1, {EAGAIN, ENOMEM}),
      Failing(f::timer_settime, -1, {EINVAL}),
      Afterwards(f::timer_delete, -1, {EINVAL}),
      Failing(f::mq_open, mqd_t{-1}, {EACCES, EEXIST, ENOENT, EMFILE, EINVAL}),
      Failing(f::mq_send, -1, {EAGAIN, EINTR, EMSGSIZE, EINVAL, EBADF}),
      Failing(f::mq_timedsend, -1, {ETIMEDOUT, EAGAIN, EINTR, EMSGSIZE, EINVAL, EBADF}),
      Failing(f::mq_receive, ssize_t{-1}, {EAGAIN, EINTR, EMSGSIZE, EBADF}),
      Failing(f::mq_timedreceive, ssize_t{-1}, {ETIMEDOUT, EAGAIN, EINTR, EMSGSIZE, EBADF}),
      Failing(f::mq_getattr, -1, {EBADF}),
      Afterwards(f::mq_close, -1, {EBADF}),
      Failing(f::shmget, -1, {EACCES, EEXIST, EINVAL, ENOENT, ENOMEM, ENOSPC}),
      Failing(f::shmat, reinterpret_cast<void *>(-1), {EACCES, EINVAL, ENOMEM}),
      Afterwards(f::shmdt, -1, {EINVAL}),
      Afterwards(f::shmctl, -1, {EINVAL, EPERM}),
      Failing(f::fopen64, nullptr, {EACCES, ENOENT, EMFILE}),
      Afterwards(f::fclose, EOF, {EIO, ENOSPC}),
      Failing(f::fseek, -1, {EINVAL, ESPIPE}),
      Failing(f::ftell, -1L, {ESPIPE}),
      Failing(f::fread, size_t{0}, {EIO}),
      Failing(f::fwrite, size_t{0}, {EIO, ENOSPC}),
      Failing(f::fgetc, EOF, {EIO}),
      Failing(f::fgets, nullptr, {EIO}),
      Failing(f::fputs, EOF, {EIO, ENOSPC}),
      Failing(f::fflush, EOF, {EIO, ENOSPC}),
      Failing(f::fsync, -1, {EIO, EINVAL}),
      Failing(f::ftruncate64, -1, {EINVAL, EIO}),
      Failing(f::truncate64, -1, {ENOENT, EIO}),
      Failing(f::setvbuf, -1, {ENOMEM}),
      Failing(f::opendir, nullptr, {ENOENT, EMFILE}),
      Failing(f::readdir64, nullptr, {EBADF}),
      Afterwards(f::closedir, -1, {EBADF}),
      Failing(f::mkdir, -1, {EEXIST, EACCES}),
      Failing(f::access, -1, {ENOENT, EACCES}),
      Failing(f::stat64, -1, {ENOENT, EACCES}),
      Failing(f::statfs64, -1, {ENOENT, EIO}),
      Failing(f::rename, -1, {EXDEV, EACCES}),
      Failing(f::dlopen, nullptr, {ENOENT}),
      Failing(f::dlsym, nullptr, {EINVAL}),
      Afterwards(f::dlclose, -1, {EINVAL}),
      Failing(f::nanosleep, -1, {EINTR, EINVAL}),
  };
  return calls;
}
