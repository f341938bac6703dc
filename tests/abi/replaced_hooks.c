/* Defines the allocation hooks and checks that the library calls them. */
#include <stdio.h>

#include "kelcore.h"

static int added, removed;

void KEL_MemTblAdd(void *block, uint32_t size, uint32_t align, const char *file, int32_t line,
                   const char *func) {
  (void)block, (void)size, (void)align, (void)file, (void)line, (void)func;
  ++added;
}

void KEL_MemTblRemove(void *block, uint32_t flag) {
  (void)block, (void)flag;
  ++removed;
}

int main(void) {
  KEL_MUTEX *mutex = KEL_MutexCreate();
  KEL_MutexDestroy(mutex);
  if (added == 1 && removed == 1)
    return 0;
  fprintf(stderr, "%d blocks added, %d removed, 1 of each expected\n", added, removed);
  return 1;
}
