// Allocation in the name of the source file that asks (see internal/trace.h).
#pragma once

#include <errno.h>
#include <stdint.h>

#include "internal/trace.h"
#include "kelcore_mem.h"

namespace kel {

template <typename T>
inline T *alloc_record(const TraceSource &source, int32_t line, const char *func) {
  return static_cast<T *>(KEL_Malloc(sizeof(T), 0, 0, source.file, line, func));
}

// Sizes of the allocator are 32 bits wide. A product that does not fit fails as
// the allocation would; returns false then.
inline bool product_fits(uint32_t count, uint32_t size) {
  if (uint64_t{count} * size <= UINT32_MAX)
    return true;
  errno = ENOMEM;
  return false;
}

}  // namespace kel

// A zeroed record, announced under the caller's position, hence a macro.
#define KEL_ALLOC(Type) (kel::alloc_record<Type>(kTraceSource, __LINE__, __func__))
