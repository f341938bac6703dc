#include <kelcore_thread.h>
#include <kelcore_time.h>
#include <signal.h>

#include "require.h"

/* --- example --- */
static volatile sig_atomic_t expired;
static void tick(void *flag) {
  *(volatile sig_atomic_t *)flag = 1;
}
/* --- */

int main(void) {
  /* --- example --- */

  KEL_TIMER *timer = KEL_TimerCreate(20000, tick, (void *)&expired);
  KEL_TimerStart(timer, 0, 1, NULL, NULL); /* every 20 ms from now on */
  /* --- */
  for (int i = 0; i < 10000 && expired == 0; ++i)
    KEL_ThreadSleep(1);
  REQUIRE(expired == 1);
  /* --- example --- */
  KEL_TimerDestroy(timer);
  /* --- */
  return 0;
}
