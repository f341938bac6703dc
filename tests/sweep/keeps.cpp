#include "keeps.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace {

constexpr Keep kKeeps[] = {
    {"KEL_SemaCreate", "strdup", "", "block", "the record, when the name cannot be copied"},
    {"KEL_SemaCreate_Custom", "strdup", "", "block",
     "the record, when the name cannot be copied"},
    {"KEL_IPCOpen", "strdup", "", "block", "its semaphore's record, likewise"},
    {"KEL_IPCOpen_CustomMsg", "strdup", "", "block", "its semaphore's record, likewise"},
    {"KEL_SemaCreate", "sem_unlink", "", "semaphore name", "it cannot be removed"},
    {"KEL_SemaCreate_Custom", "sem_unlink", "", "semaphore name", "it cannot be removed"},
    {"KEL_IPCOpen", "sem_unlink", "", "semaphore name", "its semaphore's, likewise"},
    {"KEL_IPCOpen_CustomMsg", "sem_unlink", "", "semaphore name", "its semaphore's, likewise"},
    {"KEL_IPCOpen", "", "", "queue name", "its messages wait for whoever comes next"},
    {"KEL_IPCOpen_CustomMsg", "", "", "queue name", "its messages wait for whoever comes next"},
    {"KEL_IPC_MsgOpen", "", "", "queue name", "its messages wait for whoever comes next"},
    {"KEL_IPCOpen", "malloc", "", "queue",
     "a process short of memory keeps its place in the queue"},
    {"KEL_IPCOpen_CustomMsg", "malloc", "", "queue",
     "a process short of memory keeps its place in the queue"},
    {"KEL_IPCOpen", "", "IpcLeavingItsBuffer", "block",
     "the message buffer may still be in use"},
    {"KEL_IPCOpen_CustomMsg", "", "IpcLeavingItsBuffer", "block",
     "the message buffer may still be in use"},
    {"KEL_IPC_MsgOpen", "mq_open", "", "block", "the handle, when the queue cannot be opened"},
    {"KEL_IPC_MsgOpen", "", "IpcSimpleMissing", "block",
     "the handle, when the queue cannot be opened"},
    {"KEL_ShmMalloc", "shmat", "", "segment", "others may be attached, or attach"},
    {"KEL_ShmMalloc", "shmctl", "", "attachment",
     "the caller keeps its data when the removal is refused"},
    {"KEL_VMemCreate", "malloc", "", "block", "the region, when the record cannot be had"},
    {"KEL_ThreadCreate", "", "ThreadDetached", "block", "the handle of a detached thread"},
    {"KEL_ThreadCreate", "", "ThreadDetachingItself", "block",
     "the handle of a thread that detaches itself"},
    {"KEL_Hashmap_Hash", "", "HashTableGrowing", "block", "the old copies of the keys"},
    {"KEL_Hashmap_Hash", "", "HashTableWithKeys", "block",
     "the copies of the keys, which KEL_Hashmap_Destroy leaves"},
    {"KEL_SMalloc_Register", "", "PoolForgotten", "block",
     "the chunks of classes still registered at the end"},
    {"KEL_TraceInit", "", "TracingRepeated", "block",
     "the first lock and file, when there is a second start"},
    {"KEL_TraceInit", "", "TracingRepeated", "mutex", "the first lock, likewise"},
    {"KEL_TraceInit", "", "TracingRepeated", "file", "the first file, likewise"},
};

// What is released without being there.
constexpr Keep kReleases[] = {
    {"KEL_SemaDestroy", "", "SemaphoreNamed", "semaphore",
     "tells tools of the end of a named one, which is closed by then"},
    {"KEL_SemaDestroy", "", "SemaphoreExisting", "semaphore", "likewise"},
    {"KEL_SemaDestroy", "", "SemaphoreCustom", "semaphore", "likewise"},
    {"KEL_IPCOpen", "", "", "semaphore", "likewise"},
    {"KEL_IPCOpen_CustomMsg", "", "", "semaphore", "likewise"},
    {"KEL_IPCClose", "", "", "semaphore", "likewise"},
    {"KEL_ShmFree", "", "SharedMemoryExisting", "segment",
     "each user marks it for removal, after the last one it goes"},
    {"KEL_MutexDestroy", "pthread_mutex_init", "", "mutex",
     "with default attributes a zeroed mutex is one already"},
    {"KEL_ListDestroy", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KEL_MsgDestroy", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KEL_QueueDestroy", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KEL_ThreadPool_Delete", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KEL_SMalloc_Deinit", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KEL_VMemDestroy", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KELBuf_Destroy", "pthread_mutex_init", "", "mutex", "likewise"},
    {"KEL_TraceDeinit", "pthread_mutex_init", "", "mutex", "likewise"},
};

template <size_t kRows>
struct Table {
  const Keep (&rows)[kRows];
  std::array<bool, kRows> used = {};

  const Keep *Find(std::string_view function, std::string_view call, std::string_view operation,
                   std::string_view thing) {
    const auto open_or = [](std::string_view row, std::string_view asked) {
      return row.empty() || row == asked;
    };
    for (size_t i = 0; i < kRows; ++i) {
      const Keep &row = rows[i];
      if (row.function == function && row.thing == thing && open_or(row.call, call) &&
          open_or(row.operation, operation)) {
        used[i] = true;
        return &row;
      }
    }
    return nullptr;
  }
  const Keep *Unused() const {
    for (size_t i = 0; i < kRows; ++i)
      if (!used[i])
        return &rows[i];
    return nullptr;
  }
};
Table<std::size(kKeeps)> keeps{kKeeps};
Table<std::size(kReleases)> releases{kReleases};

}  // namespace

const Keep *AllowedToStay(const char *function, const char *call, const char *operation,
                          const char *thing) {
  return keeps.Find(function, call, operation, thing);
}

const Keep *AllowedToRelease(const char *function, const char *call, const char *operation,
                             const char *thing) {
  return releases.Find(function, call, operation, thing);
}

const Keep *UnusedKeep() {
  const Keep *unused = keeps.Unused();
  return unused != nullptr ? unused : releases.Unused();
}
