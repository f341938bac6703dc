/* Defines the allocation hooks and checks that the library calls them. */
#include <stdio.h>

#include "kelcore.h"

static int added, updated, removed;

void KEL_MemTblAdd(void *block, uint32_t size, uint32_t align, const char *file, int32_t line,
                   const char *func) {
  (void)block, (void)size, (void)align, (void)file, (void)line, (void)func;
  ++added;
}

void KEL_MemTblUpdate(void *old_block, void *new_block, uint32_t size) {
  (void)old_block, (void)new_block, (void)size;
  ++updated;
}

void KEL_MemTblRemove(void *block, uint32_t flag) {
  (void)block, (void)flag;
  ++removed;
}

int main(void) {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  KEL_MutexDestroy(mutex);
  void *block = KEL_ReAlloc(KEL_Malloc(8, 0, 0, __FILE__, __LINE__, __func__), 16);
  KEL_Free(block, 0);
  if (added == 2 && updated == 1 && removed == 2)
    return 0;
  fprintf(stderr, "%d blocks added, %d updated, %d removed; 2, 1, 2 expected\n", added, updated,
          removed);
  return 1;
}
