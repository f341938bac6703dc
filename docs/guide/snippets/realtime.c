/* A thread with real-time priority where that is granted, without it elsewhere. */
#include <kelcore_thread.h>

#include "require.h"

/* --- priority --- */
/* A missing privilege must not keep the device from working. */
static KEL_THREAD *start_urgent(const char *name, uint32_t priority, KEL_THREAD_ENTRY entry,
                                void *argument) {
  KEL_THREAD *thread = KEL_ThreadCreate(name, priority, 0, entry, argument);
  if (thread == NULL)
    thread = KEL_ThreadCreate(name, 0, 0, entry, argument);
  return thread;
}
/* --- */

static void *run(void *text) {
  printf("%s\n", (const char *)text);
  return text;
}

int main(void) {
  char text[] = "running, urgently or not";
  KEL_THREAD *thread = start_urgent("audio", 20, run, text);
  REQUIRE(thread != NULL);
  void *result = NULL;
  REQUIRE(KEL_ThreadDelete(thread, &result) == 0 && result == text);
  return 0;
}
