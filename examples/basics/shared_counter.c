/* Two processes count in one segment of shared memory, under a semaphore that
 * they open by name. */
#include <kelcore_sema.h>
#include <kelcore_shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include "require.h"

static char segment_name[64], lock_name[64];

/* The last three arguments are for the messages of a failure. */
static int *open_counter(uint8_t *created) {
  return KEL_ShmMalloc(segment_name, sizeof(int), created, __FILE__, __LINE__, __func__);
}

static void count(int *counter, KEL_SEMA *lock) {
  for (int i = 0; i < 1000; ++i) {
    REQUIRE(KEL_SemaGet(lock, KEL_WAIT_FOREVER) == 0);
    ++*counter;
    KEL_SemaPut(lock);
  }
}

int main(void) {
  const int self = (int)getpid();
  snprintf(segment_name, sizeof segment_name, "example-counter.%d", self);
  snprintf(lock_name, sizeof lock_name, "/example-lock.%d", self);

  KEL_SEMA *lock = KEL_SemaCreate(lock_name, 1);
  REQUIRE(lock != NULL);
  uint8_t created = 0;
  int *counter = open_counter(&created);
  if (counter == NULL || created == 0) { /* another name may share the key */
    KEL_SemaDestroy(lock);
    REQUIRE(!"a segment of our own");
  }
  *counter = 0;

  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) {
    uint8_t again = 1;
    /* What the parent made, by the same names. The child leaves both to the
     * system: to release them would remove them from it. */
    int *mine = open_counter(&again);
    KEL_SEMA *same_lock = KEL_SemaCreate_Custom(lock_name, 1, 0);
    REQUIRE(mine != NULL && again == 0 && same_lock != NULL);
    count(mine, same_lock);
    _exit(0);
  }
  int status = -1;
  if (pid > 0) {
    count(counter, lock);
    waitpid(pid, &status, 0);
    printf("counted to %d\n", *counter);
  }
  KEL_ShmFree(counter); /* removes it from the system */
  KEL_SemaDestroy(lock);
  return status == 0 ? 0 : EXIT_FAILURE;
}
