#include "alloc_hooks.h"

#include <atomic>

#include "kelcore_mem.h"

namespace {
std::atomic<AllocHooks *> current{nullptr};
}

AllocHooks::AllocHooks() {
  current = this;
}
AllocHooks::~AllocHooks() {
  current = nullptr;
}

void KEL_MemTblAdd(void *block, uint32_t size, uint32_t align, const char *file, int32_t line,
                   const char *func) {
  AllocHooks *hooks = current;
  if (hooks == nullptr)
    return;
  {
    std::lock_guard<std::mutex> guard(hooks->mutex);
    hooks->adds.push_back({block, size, align, file ? file : "", line, func ? func : ""});
  }
  if (hooks->on_add)
    hooks->on_add(block, size);
}

void KEL_MemTblUpdate(void *old_block, void *new_block, uint32_t size) {
  if (AllocHooks *hooks = current) {
    std::lock_guard<std::mutex> guard(hooks->mutex);
    hooks->updates.push_back({old_block, new_block, size});
  }
}

void KEL_MemTblRemove(void *block, uint32_t flag) {
  if (AllocHooks *hooks = current) {
    std::lock_guard<std::mutex> guard(hooks->mutex);
    hooks->removes.push_back({block, flag});
  }
}
