/* Follows every block of the library: a program that defines the announcements
 * replaces the library's own, which do nothing. */
#include <kelcore_mem.h>
#include <kelcore_queue.h>

#include "require.h"

/* One thread here: with more of them, count under a lock of your own. */
static int blocks;

void KEL_MemTblAdd(void *block, uint32_t size, uint32_t align, const char *file, int32_t line,
                   const char *func) {
  (void)size, (void)align, (void)file, (void)line, (void)func;
  if (block != NULL)
    ++blocks;
}

void KEL_MemTblUpdate(void *old_block, void *new_block, uint32_t size) {
  (void)old_block, (void)new_block, (void)size;
}

void KEL_MemTblRemove(void *block, uint32_t flag) {
  (void)flag;
  if (block != NULL)
    --blocks;
}

int main(void) {
  KEL_QUEUE *queue = KEL_QueueCreate("followed", 4);
  REQUIRE(queue != NULL && blocks > 0);
  KEL_QueueDestroy(queue);
  printf("%d blocks left\n", blocks);
  return 0;
}
