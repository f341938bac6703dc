/* Timer callbacks on a thread of their own: no other wait is disturbed. */
#include <kelcore_sema.h>
#include <kelcore_thread.h>
#include <kelcore_time.h>
#include <signal.h>

#include "require.h"

/* --- mask --- */
/* Before the first thread is made: threads inherit the mask. */
static void block_timer_signal(void) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGRTMIN + 4);
  REQUIRE(pthread_sigmask(SIG_BLOCK, &signals, NULL) == 0);
}

/* The one thread that lets the signal in. It runs until it is told to end. */
static void *receive_timers(void *end) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGRTMIN + 4);
  pthread_sigmask(SIG_UNBLOCK, &signals, NULL);
  while (KEL_SemaGet(end, KEL_WAIT_FOREVER) != 0) {
    /* Woken by a timer's signal, whose callback has run by now. */
  }
  return NULL;
}
/* --- */

/* --- callback --- */
static void tick(void *ticks) {
  KEL_SemaPut(ticks); /* one of the few things that a handler may do */
}
/* --- */

int main(void) {
  block_timer_signal();
  KEL_SEMA *end = KEL_SemaCreate(NULL, 0);
  KEL_SEMA *ticks = KEL_SemaCreate(NULL, 0);
  REQUIRE(end != NULL && ticks != NULL);
  KEL_THREAD *thread = KEL_ThreadCreate("timers", 0, 0, receive_timers, end);
  KEL_TIMER *timer = KEL_TimerCreate(2000 /* us */, tick, ticks);
  REQUIRE(thread != NULL && timer != NULL);
  REQUIRE(KEL_TimerStart(timer, 0, 1, NULL, NULL) == 0);
  int disturbed = 0;
  for (int i = 0; i < 5; ++i)
    disturbed += KEL_SemaGet(ticks, KEL_WAIT_FOREVER) != 0;
  printf("five ticks, %d disturbed waits\n", disturbed);
  REQUIRE(KEL_TimerDestroy(timer) == 0);
  REQUIRE(KEL_SemaPut(end) == 0);
  REQUIRE(KEL_ThreadDelete(thread, NULL) == 0);
  REQUIRE(KEL_SemaDestroy(ticks) == 0);
  REQUIRE(KEL_SemaDestroy(end) == 0);
  return 0;
}
