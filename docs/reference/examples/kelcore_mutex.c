#include <kelcore_mutex.h>

#include "require.h"

int main(void) {
  int count = 0;
  /* --- example --- */
  KEL_MUTEX *lock = KEL_MutexCreate();
  if (KEL_MutexLock(lock, 50) == 0) { /* else not locked, for whatever reason */
    ++count;
    KEL_MutexUnLock(lock);
  }
  KEL_MutexDestroy(lock);
  /* --- */
  REQUIRE(count == 1);
  return 0;
}
