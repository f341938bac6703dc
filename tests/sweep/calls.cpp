#include "calls.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "more_calls.h"
#include "recorder.h"

namespace {

namespace f = faults;

// Whoever has not given up after so many failures never will: then they end.
constexpr int kEndless = 20'000;

std::vector<Fault> active_faults;
bool keep_contents = false;
std::set<pthread_mutex_t *> held;

template <typename R, typename... A>
class Swept final : public SweptCall {
 public:
  Swept(f::Call<R(A...)> &call, std::vector<int> errors, std::function<R(int)> failing)
      : SweptCall(call.name(), std::move(errors)), call_(call), failing_(std::move(failing)) {}

  // Does its work and then tells of a failure, as calls that release do.
  Swept &Afterwards() {
    afterwards_ = true;
    return *this;
  }
  Swept &Before(std::function<void(A...)> note) {
    before_ = std::move(note);
    return *this;
  }
  Swept &After(std::function<void(R, A...)> note) {
    after_ = std::move(note);
    return *this;
  }
  Swept &Instead(std::function<R(A...)> real) {
    real_ = std::move(real);
    return *this;
  }

  void Install() override {
    call_.Replace([this](A... arguments) -> R { return Run(arguments...); });
  }

 private:
  R Real(A... arguments) { return real_ ? real_(arguments...) : call_.Real(arguments...); }

  R Run(A... arguments) {
    if (!InLibrary())
      return call_.Real(arguments...);
    const int error = Due();
    if (error != 0 && !afterwards_)
      return failing_(error);
    if (before_)
      Note([&] { before_(arguments...); });
    const R result = Real(arguments...);
    if (after_)
      Note([&] { after_(result, arguments...); });
    return error != 0 ? failing_(error) : result;
  }

  template <typename Action>
  static void Note(Action action) {
    const Outside outside;
    const int error = errno;
    action();
    errno = error;
  }

  f::Call<R(A...)> &call_;
  std::function<R(int)> failing_;
  bool afterwards_ = false;
  std::function<void(A...)> before_;
  std::function<void(R, A...)> after_;
  std::function<R(A...)> real_;
};

class Releasing final : public SweptCall {
 public:
  Releasing() : SweptCall("free", {}) {}
  void Install() override {
    f::free.Replace([](void *block) {
      if (InLibrary() && block != nullptr) {
        const Outside outside;
        Recorder::Closed("block", std::to_string(reinterpret_cast<uintptr_t>(block)));
      }
      f::free.Real(block);
    });
  }
};

std::vector<std::unique_ptr<SweptCall>> all_calls;

template <typename R, typename... A>
Swept<R, A...> &Add(f::Call<R(A...)> &call, std::vector<int> errors,
                    std::function<R(int)> failing) {
  auto added = std::make_unique<Swept<R, A...>>(call, std::move(errors), std::move(failing));
  Swept<R, A...> &result = *added;
  all_calls.push_back(std::move(added));
  return result;
}

// Fails with errno set.
template <typename R, typename... A>
Swept<R, A...> &Failing(f::Call<R(A...)> &call, std::type_identity_t<R> result,
                        std::vector<int> errors) {
  return Add<R, A...>(call, std::move(errors), [result](int error) {
    errno = error;
    return result;
  });
}

// Fails by returning the error.
template <typename... A>
Swept<int, A...> &Returning(f::Call<int(A...)> &call, std::vector<int> errors) {
  return Add<int, A...>(call, std::move(errors), [](int error) { return error; });
}

template <typename T>
std::string Id(T *thing) {
  return std::to_string(reinterpret_cast<uintptr_t>(thing));
}
template <typename T>
requires std::is_integral_v<T> std::string Id(T thing) {
  return std::to_string(thing);
}

// ---- What calls make and release ----

template <typename R, typename... A>
void Allocates(f::Call<R(A...)> &call) {
  Failing(call, nullptr, {ENOMEM}).After([](R block, A...) {
    if (block != nullptr)
      Recorder::Opened("block", Id(block));
  });
}

// The result stands for the thing, unless it is `none`.
template <typename R, typename... A>
void Gives(Swept<R, A...> &call, const char *kind, std::type_identity_t<R> none) {
  call.After([kind, none](R result, A...) {
    if (result != none)
      Recorder::Opened(kind, Id(result));
  });
}

// Likewise, and what is made has a name in the system, too.
template <typename R, typename... A>
void GivesNamed(Swept<R, const char *, int, A...> &call, const char *kind, const char *named,
                std::type_identity_t<R> none) {
  call.After([kind, named, none](R result, const char *name, int flags, A...) {
    if (result == none)
      return;
    Recorder::Opened(kind, Id(result));
    if ((flags & O_CREAT) != 0)
      Recorder::Named(named, name);
  });
}

// The first argument stands for the thing.
template <typename R, typename First, typename... A>
void Makes(Swept<R, First, A...> &call, const char *kind) {
  call.After([kind](R result, First thing, A...) {
    if (result == 0)
      Recorder::Opened(kind, Id(thing));
  });
}
template <typename R, typename First, typename... A>
void Releases(Swept<R, First, A...> &call, const char *kind) {
  call.Afterwards().Before([kind](First thing, A...) { Recorder::Closed(kind, Id(thing)); });
}

void AddMemory() {
  Allocates(f::malloc);
  Allocates(f::calloc);
  Allocates(f::aligned_alloc);
  Allocates(f::strdup);
  Failing(f::realloc, nullptr, {ENOMEM}).After([](void *block, void *old_block, size_t) {
    if (block == nullptr)
      return;
    if (old_block != nullptr)
      Recorder::Closed("block", Id(old_block));
    Recorder::Opened("block", Id(block));
  });
  all_calls.push_back(std::make_unique<Releasing>());
}

void AddClocksAndTimers() {
  Failing(f::clock_gettime, -1, {EINVAL});
  Failing(f::time, time_t{-1}, {EOVERFLOW});
  Failing(f::localtime, nullptr, {EOVERFLOW});
  Failing(f::nanosleep, -1, {EINTR, EINVAL});
  Failing(f::sigaction, -1, {EINVAL});
  Failing(f::timer_create, -1, {EAGAIN, ENOMEM})
      .After([](int result, clockid_t, struct sigevent *, timer_t *id) {
        if (result == 0)
          Recorder::Opened("timer", Id(*id));
      });
  Failing(f::timer_settime, -1, {EINVAL});
  Failing(f::timer_getoverrun, -1, {EINVAL});
  Releases(Failing(f::timer_delete, -1, {EINVAL}), "timer");
}

// Schedules like the others: priorities take rights that tests may not have.
int CreateThread(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                 void *arg) {
  size_t stack_size = 0;
  pthread_attr_t plain;
  pthread_attr_getstacksize(attributes, &stack_size);
  f::pthread_attr_init.Real(&plain);
  f::pthread_attr_setstacksize.Real(&plain, stack_size);
  const int error = f::pthread_create.Real(thread, &plain, entry, arg);
  f::pthread_attr_destroy.Real(&plain);
  return error;
}

void AddThreads() {
  // The mutex module takes only what is negative for a failure.
  Makes(Returning(f::pthread_mutex_init, {ENOMEM, -1}), "mutex");
  Releases(Returning(f::pthread_mutex_destroy, {EBUSY}), "mutex");
  const auto note_held = [](int result, pthread_mutex_t *mutex, auto...) {
    if (result == 0)
      held.insert(mutex);
  };
  Returning(f::pthread_mutex_trylock, {EBUSY, EINVAL}).After(note_held);
  Returning(f::pthread_mutex_timedlock, {ETIMEDOUT, EINVAL, EDEADLK}).After(note_held);
  // Who goes on without a lock gives back what it has not, which ThreadSanitizer minds.
  Returning(f::pthread_mutex_unlock, {EPERM}).Afterwards().Instead([](pthread_mutex_t *mutex) {
    return held.erase(mutex) != 0 ? f::pthread_mutex_unlock.Real(mutex) : 0;
  });
  Makes(Returning(f::pthread_attr_init, {ENOMEM}), "thread attributes");
  Releases(Returning(f::pthread_attr_destroy, {EINVAL}), "thread attributes");
  Returning(f::pthread_attr_setinheritsched, {EINVAL});
  Returning(f::pthread_attr_setschedpolicy, {EINVAL, ENOTSUP});
  Returning(f::pthread_attr_setscope, {ENOTSUP});
  Returning(f::pthread_attr_setschedparam, {EINVAL});
  Returning(f::pthread_attr_setstacksize, {EINVAL, ENOMEM});
  Returning(f::pthread_create, {EAGAIN, EPERM})
      .Instead(CreateThread)
      .After(
          [](int result, pthread_t *thread, const pthread_attr_t *, void *(*)(void *), void *) {
            if (result == 0)
              Recorder::Opened("thread", Id(*thread));
          });
  Releases(Returning(f::pthread_join, {ESRCH}), "thread");
  Releases(Returning(f::pthread_detach, {ESRCH, EINVAL}), "thread");
  Returning(f::pthread_setname_np, {ERANGE, ESRCH});
}

void AddSemaphores() {
  Makes(Failing(f::sem_init, -1, {EINVAL, ENOSPC}), "semaphore");
  Releases(Failing(f::sem_destroy, -1, {EINVAL}), "semaphore");
  GivesNamed(Failing(f::sem_open, SEM_FAILED, {EACCES, EEXIST, ENOENT, EMFILE}),
             "named semaphore", "semaphore", SEM_FAILED);
  Releases(Failing(f::sem_close, -1, {EINVAL}), "named semaphore");
  Failing(f::sem_unlink, -1, {ENOENT, EACCES});
  Failing(f::sem_wait, -1, {EINTR, EINVAL});
  Failing(f::sem_trywait, -1, {EAGAIN, EINTR, EINVAL});
  Failing(f::sem_timedwait, -1, {ETIMEDOUT, EINTR, EINVAL});
  Failing(f::sem_post, -1, {EOVERFLOW, EINVAL});
  Failing(f::sem_getvalue, -1, {EINVAL});
}

void AddBetweenProcesses() {
  GivesNamed(Failing(f::mq_open, mqd_t{-1}, {EACCES, EEXIST, ENOENT, EMFILE, EINVAL}), "queue",
             "queue", -1);
  Releases(Failing(f::mq_close, -1, {EBADF}), "queue");
  Failing(f::mq_send, -1, {EAGAIN, EINTR, EMSGSIZE, ETIMEDOUT, EBADF});
  Failing(f::mq_timedsend, -1, {ETIMEDOUT, EAGAIN, EINTR, EMSGSIZE, EBADF});
  Failing(f::mq_receive, ssize_t{-1}, {EAGAIN, EINTR, EMSGSIZE, ETIMEDOUT, EBADF});
  Failing(f::mq_timedreceive, ssize_t{-1}, {ETIMEDOUT, EAGAIN, EINTR, EMSGSIZE, EBADF});
  Failing(f::mq_getattr, -1, {EBADF});
  Failing(f::shmget, -1, {EACCES, EEXIST, EINVAL, ENOENT, ENOMEM, ENOSPC})
      .After([](int id, key_t, size_t, int flags) {
        if (id != -1 && (flags & IPC_CREAT) != 0)
          Recorder::Opened("segment", Id(id));
      });
  Gives(Failing(f::shmat, reinterpret_cast<void *>(-1), {EACCES, EINVAL, ENOMEM}), "attachment",
        reinterpret_cast<void *>(-1));
  Releases(Failing(f::shmdt, -1, {EINVAL}), "attachment");
  Releases(Failing(f::shmctl, -1, {EINVAL, EPERM}), "segment");
}

FILE *OpenFile(const char *path, const char *mode) {
  const int before = errno;
  const bool keeps = keep_contents && mode[0] == 'w' && f::access.Real(path, F_OK) == 0;
  FILE *file = f::fopen64.Real(path, keeps ? "r+" : mode);
  if (file != nullptr)
    errno = before;  // what it was meanwhile differs between C libraries
  return file;
}

int KeepText(f::Print print) {
  char text[8192];
  const int length = f::vsnprintf.Real(text, sizeof text, print.format, print.arguments);
  const Outside outside;
  Recorder::Print(text);
  return length;
}

void AddFiles() {
  Gives(Failing(f::fopen64, nullptr, {EACCES, ENOENT, EMFILE}).Instead(OpenFile), "file",
        nullptr);
  Releases(Failing(f::fclose, EOF, {EIO, ENOSPC}), "file");
  Failing(f::fseek, -1, {EINVAL, ESPIPE});
  Failing(f::ftell, -1L, {ESPIPE});
  Failing(f::fread, size_t{0}, {EIO});
  Failing(f::fwrite, size_t{0}, {EIO, ENOSPC});
  Failing(f::fgetc, EOF, {EIO});
  Failing(f::fgets, nullptr, {EIO});
  Failing(f::fputs, EOF, {EIO, ENOSPC});
  Failing(f::fflush, EOF, {EIO, ENOSPC});
  // What reaches the disk is not what is tested, and takes long.
  Failing(f::fsync, -1, {EIO, EINVAL}).Instead([](int file) {
    return fcntl(file, F_GETFD) == -1 ? -1 : 0;
  });
  Failing(f::fileno, -1, {EBADF});
  Failing(f::ftruncate64, -1, {EINVAL, EIO});
  Failing(f::truncate64, -1, {ENOENT, EIO});
  Failing(f::setvbuf, -1, {ENOMEM});
  Gives(Failing(f::opendir, nullptr, {ENOENT, EMFILE}), "directory", nullptr);
  Failing(f::readdir64, nullptr, {EBADF});
  Releases(Failing(f::closedir, -1, {EBADF}), "directory");
  Failing(f::mkdir, -1, {EEXIST, EACCES});
  Failing(f::access, -1, {ENOENT, EACCES});
  Failing(f::stat64, -1, {ENOENT, EACCES});
  Failing(f::statfs64, -1, {ENOENT, EIO});
  Failing(f::rename, -1, {EXDEV, EACCES});
  Failing(f::print, -1, {EIO}).Instead(KeepText);
  Failing(f::vsnprintf, -1, {EOVERFLOW});
}

void AddLibraries() {
  Gives(Failing(f::dlopen, nullptr, {ENOENT}), "library", nullptr);
  Releases(Failing(f::dlclose, -1, {EINVAL}), "library");
  Failing(f::dlsym, nullptr, {EINVAL});
  Failing(f::dlerror, nullptr, {EINVAL});
}

}  // namespace

int SweptCall::Due() {
  const int number = made_++;
  for (const Fault &fault : active_faults)
    if (fault.call == this && number >= fault.skip && number - fault.skip < fault.times) {
      has_failed_ = true;
      if (number - fault.skip < kEndless)
        return fault.error;
      if (number - fault.skip == kEndless)
        Recorder::Print("and so on without end");
    }
  return 0;
}

const std::vector<std::unique_ptr<SweptCall>> &SweptCalls() {
  if (all_calls.empty()) {
    AddMemory();
    AddClocksAndTimers();
    AddThreads();
    AddSemaphores();
    AddBetweenProcesses();
    AddFiles();
    AddLibraries();
  }
  return all_calls;
}

SweptCall &CallNamed(const std::string &name) {
  for (const auto &call : SweptCalls())
    if (call->name() == name)
      return *call;
  abort();
}

void StartRun(const std::vector<Fault> &faults) {
  active_faults = faults;
  held.clear();
  for (const auto &call : SweptCalls())
    call->made_ = 0;
}

KeepContents::KeepContents() {
  keep_contents = true;
}
KeepContents::~KeepContents() {
  keep_contents = false;
}
