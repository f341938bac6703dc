/* One deadline over several waits. */
#include <kelcore_queue.h>
#include <kelcore_time.h>

#include "require.h"

/* --- deadline --- */
/* Takes an entry, waiting until `deadline` (of KEL_GetSystemTick) at most.
 * A wake-up without an entry does not end the waiting, nor does it prolong it. */
static void *pop_until(KEL_QUEUE *queue, int32_t *number, uint64_t deadline) {
  for (;;) {
    const uint64_t now = KEL_GetSystemTick();
    const uint64_t left = deadline > now ? deadline - now : 0;
    /* Longer than this would be an endless wait; the loop comes back anyway. */
    const uint32_t wait = left < 60000 ? (uint32_t)left : 60000;
    void *entry = KEL_QueuePop(queue, number, wait);
    if (entry != NULL || left == 0)
      return entry;
  }
}
/* --- */

int main(void) {
  KEL_QUEUE *queue = KEL_QueueCreate("work", 4);
  REQUIRE(queue != NULL);
  char work[] = "work";
  int32_t number = 0;
  REQUIRE(KEL_QueuePush(queue, work, 7) == 0);
  const uint64_t begin = KEL_GetSystemTick();
  REQUIRE(pop_until(queue, &number, begin + 50) == work && number == 7);
  REQUIRE(KEL_QueuePopRelease(queue) == 0); /* a wake-up for nothing */
  REQUIRE(pop_until(queue, &number, begin + 50) == NULL);
  printf("waited to the end: %s\n", KEL_GetSystemTick() - begin >= 50 ? "yes" : "no");
  KEL_QueueDestroy(queue);
  return 0;
}
