// Counting semaphores over POSIX semaphores, unnamed or named.

#include "kelcore_sema.h"

#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <stdlib.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/deadline.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelsema", "kelcore_sema")

struct KEL_SEMA {
  char *name;  // null for an unnamed semaphore
  sem_t *native;
  uint32_t initial;
};

namespace {

constexpr uint32_t kNativeBytes = 32;
static_assert(sizeof(sem_t) <= kNativeBytes);
constexpr mode_t kNamedMode = 0666;

#define SEMA_ERROR(func, ...) TRACE_AS(func, KEL_LEVEL_ERROR, __VA_ARGS__)

void release_record(KEL_SEMA *sema) {
  const kel::ErrnoGuard keep_errno;
  free(sema->name);  // from strdup
  KEL_Free(sema, 0);
}

sem_t *open_named(const char *name, uint32_t count, bool may_create) {
  if (!may_create)
    return sem_open(name, 0);
  sem_t *native = sem_open(name, O_CREAT | O_EXCL, kNamedMode, count);
  if (native == SEM_FAILED && errno == EEXIST)
    native = sem_open(name, 0);  // another process was first; its count stands
  return native;
}

KEL_SEMA *create_named(const char *func, KEL_SEMA *sema, const char *name, bool may_create) {
  sema->name = strdup(name);
  if (sema->name == nullptr) {
    SEMA_ERROR(func, "sema name copy failed size(%d)\n", kel::low32_signed(strlen(name)));
    // The record is kept on this path, and on this path only.
    return nullptr;
  }
  sema->native = open_named(name, sema->initial, may_create);
  if (sema->native == SEM_FAILED) {
    SEMA_ERROR(func, "semaphore open failed name (%s) err(%d)\n", name, errno);
    const kel::ErrnoGuard keep_errno;
    sem_unlink(name);
    release_record(sema);
    return nullptr;
  }
  return sema;
}

KEL_SEMA *create_unnamed(const char *func, KEL_SEMA *sema) {
  sema->native = static_cast<sem_t *>(
      KEL_Malloc(kNativeBytes, 0, KEL_NO_FILL, kTraceSource.file, __LINE__, func));
  if (sema->native == nullptr) {
    SEMA_ERROR(func, "sem_t malloc failed size(%d)\n", kNativeBytes);
    release_record(sema);
    return nullptr;
  }
  if (sem_init(sema->native, 0, sema->initial) == -1) {
    SEMA_ERROR(func, "semaphore init failed err(%d)\n", errno);
    const kel::ErrnoGuard keep_errno;
    KEL_Free(sema->native, 0);
    release_record(sema);
    return nullptr;
  }
  return sema;
}

KEL_SEMA *create(const char *func, const char *name, uint32_t count, bool may_create) {
  auto *sema = static_cast<KEL_SEMA *>(
      KEL_Malloc(sizeof(KEL_SEMA), 0, 0, kTraceSource.file, __LINE__, func));
  if (sema == nullptr) {
    SEMA_ERROR(func, "sem_t malloc failed size(%d)\n", static_cast<int>(sizeof(KEL_SEMA)));
    return nullptr;
  }
  sema->initial = count;
  sema =
      name != nullptr ? create_named(func, sema, name, may_create) : create_unnamed(func, sema);
  if (sema != nullptr)
    TRACE_AS(func, KEL_LEVEL_TRACE, "new semaphore (%x)\n", kel::low32(sema));
  return sema;
}

int32_t get_bounded(sem_t *native, uint32_t timeout) {
  if (sem_trywait(native) == 0)
    return 0;
  const timespec deadline = kel::deadline_after_ms(timeout);
  int result;
  do {
    result = sem_timedwait(native, &deadline);
  } while (result != 0 && errno == EINTR);
  if (result == 0)
    return 0;
  if (errno == ETIMEDOUT)
    return -ETIMEDOUT;
  SEMA_ERROR("KEL_SemaGet", "sem_timedwait tout=%d err=%d\n", static_cast<int32_t>(timeout),
             errno);
  return -1;
}

}  // namespace

KEL_SEMA *KEL_SemaCreate(const char *name, uint32_t count) {
  return create(__func__, name, count, true);
}

KEL_SEMA *KEL_SemaCreate_Custom(const char *name, uint32_t count, uint8_t may_create) {
  return create(__func__, name, count, may_create != 0);
}

int32_t KEL_SemaDestroy(KEL_SEMA *sema) {
  if (sema == nullptr) {
    TRACE_ERROR("invalid sema\n");
    return -EINVAL;
  }
  if (sema->name != nullptr) {
    sem_close(sema->native);
    sem_unlink(sema->name);
    // Marks the end of the object's life for tools that follow semaphores; the
    // C library does not look at the memory, which is unmapped by now.
    sem_destroy(sema->native);
  } else {
    sem_destroy(sema->native);
    KEL_Free(sema->native, 0);
  }
  release_record(sema);
  return 0;
}

int32_t KEL_SemaGet(KEL_SEMA *sema, uint32_t timeout) {
  if (sema == nullptr) {
    TRACE_ERROR("invalid sema\n");
    return -EINVAL;
  }
  switch (timeout) {
    case 0:
      if (sem_trywait(sema->native) == 0)
        return 0;
      TRACE_ERROR("sem_trywait err=%d\n", errno);
      return -1;
    case KEL_WAIT_FOREVER:
      // Once only: a signal ends the wait, so that a thread can be called off.
      if (sem_wait(sema->native) == 0)
        return 0;
      TRACE_ERROR("sem_wait err=%d\n", errno);
      return -1;
    default:
      return get_bounded(sema->native, timeout);
  }
}

int32_t KEL_SemaPut(KEL_SEMA *sema) {
  if (sema == nullptr) {
    TRACE_ERROR("invalid sema\n");
    return -EINVAL;
  }
  if (sem_post(sema->native) != 0) {
    TRACE_ERROR("sem_post error err=%d\n", errno);
    return -1;
  }
  return 0;
}

int32_t KEL_SemaStatus(KEL_SEMA *sema, int32_t *count) {
  TRACE_TRACE("Enter\n");
  if (sema == nullptr) {
    TRACE_ERROR("invalid sema\n");
    return -EINVAL;
  }
  return sem_getvalue(sema->native, count);
}

int32_t KEL_SemaReset(KEL_SEMA *sema) {
  int value = 0;
  sem_getvalue(sema->native, &value);
  TRACE_DEBUG("sem_value=%d\n", value);
  // As many as were there: units that come in meanwhile are for the next user.
  for (int i = 0; i < value; ++i) {
    if (sem_wait(sema->native) != 0) {
      TRACE_ERROR("sem_wait error err=%d\n", errno);
      break;
    }
  }
  sem_getvalue(sema->native, &value);
  TRACE_DEBUG("sem_value=%d\n", value);
  return 0;
}
