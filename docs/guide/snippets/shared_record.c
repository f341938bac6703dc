/* A record that processes share, with a seal: names can meet in one segment. */
#include <kelcore_sema.h>
#include <kelcore_shm.h>
#include <unistd.h>

#include "require.h"

/* --- attach --- */
struct totals {
  uint32_t seal;     /* who wrote this, and in which layout */
  uint32_t pictures; /* guarded by the semaphore of the same name */
};
enum { kSeal = 0x746f7431 };

/* The lock outlives no one: the process that goes last destroys it. */
static struct totals *attach(const char *name, KEL_SEMA *lock) {
  uint8_t created = 0;
  if (KEL_SemaGet(lock, 1000) != 0)
    return NULL;
  struct totals *totals =
      KEL_ShmMalloc(name, sizeof *totals, &created, __FILE__, __LINE__, __func__);
  if (totals != NULL && created) /* a new segment is all zeros */
    totals->seal = kSeal;
  const int foreign = totals != NULL && totals->seal != kSeal;
  KEL_SemaPut(lock);
  /* Freeing would take it from its owner: leave it, and tell. */
  return foreign ? NULL : totals;
}
/* --- */

int main(void) {
  char name[64];
  snprintf(name, sizeof name, "/guide-record.%d", (int)getpid());
  KEL_SEMA *lock = KEL_SemaCreate(name, 1);
  REQUIRE(lock != NULL);
  struct totals *totals = attach(name, lock);
  REQUIRE(totals != NULL);
  struct totals *again = attach(name, lock);
  REQUIRE(again != NULL);
  ++totals->pictures;
  printf("seen through the other address: %u\n", (unsigned)again->pictures);
  KEL_ShmFree(again);
  KEL_ShmFree(totals);
  REQUIRE(KEL_SemaDestroy(lock) == 0);
  return 0;
}
