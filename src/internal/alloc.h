// Allocation in the name of the source file that asks (see internal/trace.h).
#pragma once

#include <errno.h>
#include <stdint.h>

#include "kelcore_mem.h"

// The block is announced under the caller's position, hence macros.
#define KEL_ALLOC_BYTES(size, fill) \
  KEL_Malloc((size), 0, (fill), kTraceSource.file, __LINE__, __func__)
#define KEL_ALLOC(Type) static_cast<Type *>(KEL_ALLOC_BYTES(sizeof(Type), 0))

namespace kel {

// Sizes of the allocator are 32 bits wide. A product that does not fit fails as
// the allocation would; returns false then.
inline bool product_fits(uint32_t count, uint32_t size) {
  if (uint64_t{count} * size <= UINT32_MAX)
    return true;
  errno = ENOMEM;
  return false;
}

}  // namespace kel
