// Memory: the one layer through which the library allocates.

#include "kelcore_mem.h"

#include <stdlib.h>
#include <string.h>

namespace {

// Null stands for the default pair, which takes one argument fewer than an
// installed function is given.
KEL_NC_MALLOC nc_malloc = nullptr;
KEL_NC_FREE nc_free = nullptr;

}  // namespace

// The announcements are weak so that a program can put its own in their place,
// with the static library as with the shared one.
__attribute__((weak)) void KEL_MemTblAdd(void *, uint32_t, uint32_t, const char *, int32_t,
                                         const char *) {}
__attribute__((weak)) void KEL_MemTblUpdate(void *, void *, uint32_t) {}
__attribute__((weak)) void KEL_MemTblRemove(void *, uint32_t) {}

void *KEL_Malloc(uint32_t size, uint32_t align, uint32_t fill, const char *file, int32_t line,
                 const char *func) {
  void *block = align != 0 ? aligned_alloc(align, size) : malloc(size);
  if (block == nullptr)
    return nullptr;
  if (fill != KEL_NO_FILL)
    memset(block, static_cast<int>(fill & 0xFF), size);
  KEL_MemTblAdd(block, size, align, file, line, func);
  return block;
}

void *KEL_Calloc(uint32_t count, uint32_t size, uint32_t, const char *file, int32_t line,
                 const char *func) {
  void *block = calloc(count, size);
  if (block != nullptr)
    KEL_MemTblAdd(block, size, 0, file, line, func);
  return block;
}

void *KEL_ReAlloc(void *block, uint32_t size) {
  // Afterwards the old address is only a name for the announcement; volatile
  // tells the compiler that nothing is meant to be reached through it.
  void *volatile old_block = block;
  void *moved = realloc(block, size);
  if (old_block != nullptr)
    KEL_MemTblUpdate(old_block, moved, size);  // NOLINT(clang-analyzer-unix.Malloc)
  return moved;
}

void KEL_Free(void *block, uint32_t flag) {
  if (block == nullptr)
    return;
  KEL_MemTblRemove(block, flag);
  free(block);
}

int32_t KEL_MemInit(KEL_NC_MALLOC allocate, KEL_NC_FREE release) {
  if (allocate != nullptr)
    nc_malloc = allocate;
  if (release != nullptr)
    nc_free = release;
  return 0;
}

void *KEL_NonCacheMalloc(uint32_t size) {
  return nc_malloc != nullptr ? nc_malloc(size, 0) : KEL_DefaultNCMalloc(size);
}

void KEL_NonCacheFree(void *block) {
  if (nc_free != nullptr)
    nc_free(block, 0);
  else
    KEL_DefaultNCFree(block);
}

void *KEL_DefaultNCMalloc(uint32_t size) {
  return malloc(size);
}

void KEL_DefaultNCFree(void *block) {
  if (block != nullptr)
    free(block);
}

uint64_t KEL_NonCacheGetPhys(void *) {
  return 0;
}
void KEL_NonCacheFlush(void *, uint32_t) {}
void KEL_MemTrace(void *, uint32_t) {}
int32_t KEL_Memcleanup(void *, uint32_t) {
  return 0;
}

void *KEL_Memmem(const void *haystack, uint32_t haystack_length, const void *needle,
                 uint32_t needle_length) {
  return memmem(haystack, haystack_length, needle, needle_length);
}
