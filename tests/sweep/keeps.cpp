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

std::array<bool, std::size(kKeeps)> used;

}  // namespace

const Keep *AllowedToStay(const char *function, const char *call, const char *operation,
                          const char *thing) {
  const auto open_or = [](std::string_view row, std::string_view asked) {
    return row.empty() || row == asked;
  };
  for (size_t i = 0; i < std::size(kKeeps); ++i) {
    const Keep &keep = kKeeps[i];
    if (std::string_view(keep.function) == function && std::string_view(keep.thing) == thing &&
        open_or(keep.call, call) && open_or(keep.operation, operation)) {
      used[i] = true;
      return &keep;
    }
  }
  return nullptr;
}

const Keep *UnusedKeep() {
  for (size_t i = 0; i < std::size(kKeeps); ++i)
    if (!used[i])
      return &kKeeps[i];
  return nullptr;
}
