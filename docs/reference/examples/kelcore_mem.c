#include <kelcore_mem.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  char *p = KEL_Malloc(256, 0, 0, __FILE__, __LINE__, __func__); /* zeroed */
  char *larger = KEL_ReAlloc(p, 512);
  if (larger != NULL) /* else the old block is still there */
    p = larger;
  KEL_Free(p, 0);
  /* --- */
  REQUIRE(larger != NULL);
  return 0;
}
