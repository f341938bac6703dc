#include <kelcore_thread.h>

#include "require.h"

/* --- example --- */
static void *run(void *number) {
  ++*(int *)number;
  return number;
}
/* --- */

int main(void) {
  /* --- example --- */

  int number = 41;
  KEL_THREAD *t = KEL_ThreadCreate("reader", 0, 0, run, &number);
  void *result;
  if (KEL_ThreadDelete(t, &result) == 0) /* joins and releases */
    printf("%d\n", *(int *)result);
  /* --- */
  REQUIRE(number == 42);
  return 0;
}
