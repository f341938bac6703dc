/* The kinds of results, and how to test each. */
#include <errno.h>
#include <kelcore_file.h>
#include <kelcore_mutex.h>
#include <kelcore_sema.h>
#include <kelcore_system.h>
#include <string.h>

#include "require.h"

int main(void) {
  KEL_MUTEX *lock = KEL_MutexCreate();
  KEL_SEMA *items = KEL_SemaCreate(NULL, 0);
  REQUIRE(lock != NULL && items != NULL);
  REQUIRE(KEL_MutexLock(lock, 0) == 0);
  /* --- results --- */
  /* Locks: 0, or something else. What else depends on the kind of time-out. */
  if (KEL_MutexLock(lock, 10) != 0)
    printf("not locked\n");

  /* Waits: 0, -ETIMEDOUT for the end of a bounded wait, -1 for anything else. */
  switch (KEL_SemaGet(items, 10)) {
    case 0:
      printf("an item\n");
      break;
    case -ETIMEDOUT:
      printf("none in time\n");
      break;
    default:
      printf("woken by a signal, or none there\n");
  }

  /* Files: the C library's own results, and its errno. */
  FILE *file = KEL_FileOpen("/nowhere/at all", KEL_FILE_MODE_READ);
  if (file == NULL)
    printf("errno says: %s\n", KEL_GetLastErrorStr());

  /* Status codes are the words in which modules of a device talk to each other:
   * the top bit tells failures. */
  const uint32_t status = file != NULL ? KEL_OK : KEL_ERR_FILE_OPEN;
  printf("%08x: %s\n", (unsigned)status, KEL_GetErrorStr(status));
  /* --- */
  REQUIRE(KEL_MutexUnLock(lock) == 0);
  REQUIRE(KEL_SemaDestroy(items) == 0);
  REQUIRE(KEL_MutexDestroy(lock) == 0);
  return 0;
}
