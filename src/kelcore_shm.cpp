// Shared memory: System V segments found by the checksum of a name.
//
// These two report on standard output rather than through the trace facility:
// they run before an application has set its tracing up.

#include "kelcore_shm.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "internal/errno_guard.h"
#include "kelcore_hash.h"

namespace {

constexpr uint64_t kAlign = 16;
constexpr uint64_t kHeaderBytes = 16;  // the identifier and 12 spare bytes
constexpr int kMode = 0666;
constexpr const char kRed[] = "\033[31m";
constexpr const char kPlain[] = "\033[0m";

key_t key_of(const char *name) {
  const auto length = static_cast<uint32_t>(name != nullptr ? strlen(name) : 0);
  return static_cast<key_t>(KEL_Hash_crc16(name, length) & 0xFFFF);
}

int open_segment(key_t key, uint64_t bytes, uint8_t *created) {
  if (bytes > UINT32_MAX) {
    errno = EINVAL;
    return -1;
  }
  int id = shmget(key, bytes, IPC_CREAT | IPC_EXCL | kMode);
  uint8_t is_new = 1;
  if (id == -1 && errno == EEXIST) {
    id = shmget(key, bytes, 0);
    is_new = 0;
  }
  if (id != -1 && created != nullptr)
    *created = is_new;
  return id;
}

}  // namespace

void *KEL_ShmMalloc(const char *name, uint32_t size, uint8_t *created, const char *file,
                    int32_t line, const char *func) {
  const key_t key = key_of(name);
  const uint64_t bytes = (uint64_t{size} + kAlign - 1) / kAlign * kAlign + kHeaderBytes;
  const auto complain = [&](const char *call) {
    const kel::ErrnoGuard keep_errno;
    printf("%s%s:%d (%s) %s failed : name(%s) key(%u) %s\n", kRed, file, line, func, call,
           name != nullptr ? name : "(null)", static_cast<unsigned>(key), kPlain);
  };
  const int id = open_segment(key, bytes, created);
  if (id == -1) {
    complain("shmget");
    return nullptr;
  }
  void *segment = shmat(id, nullptr, 0);
  if (segment == reinterpret_cast<void *>(-1)) {
    complain("shmat");
    return nullptr;
  }
  const auto identifier = static_cast<int32_t>(id);
  memcpy(segment, &identifier, sizeof identifier);
  return static_cast<uint8_t *>(segment) + kHeaderBytes;
}

void KEL_ShmFree(void *data) {
  if (data == nullptr)
    return;
  void *segment = static_cast<uint8_t *>(data) - kHeaderBytes;
  int32_t identifier;
  memcpy(&identifier, segment, sizeof identifier);
  const auto complain = [](const char *call) {
    const kel::ErrnoGuard keep_errno;
    printf("%s %s fail (errno = %s) %s\n", kRed, call, strerror(errno), kPlain);
  };
  // Attached still when the removal is refused: the caller keeps its data.
  if (shmctl(identifier, IPC_RMID, nullptr) != 0) {
    complain("shmctl");
    return;
  }
  if (shmdt(segment) != 0)
    complain("shmdt");
}
