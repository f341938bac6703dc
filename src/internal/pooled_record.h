// Small records of fixed size: list nodes and queue entries. They come from the
// pool allocator when their size is registered there and else from the heap.
#pragma once

#include <stdint.h>

#include "internal/trace.h"
#include "kelcore_mem.h"
#include "kelcore_smem.h"

namespace kel {

inline void *pooled_record_new(uint32_t size, const TraceSource &source, int32_t line,
                               const char *func) {
  if (KEL_SMemIsReg(size) != 0)
    return KEL_SMalloc(size);
  return KEL_Malloc(size, 0, 0, source.file, line, func);
}

// Asks the same question as at allocation, which is why a class must not come
// or go while its records live.
inline int32_t pooled_record_delete(void *record, uint32_t size) {
  if (KEL_SMemIsReg(size) != 0)
    return KEL_SFree(record, size);
  KEL_Free(record, 0);
  return 0;
}

}  // namespace kel
