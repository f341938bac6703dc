#include <kelcore_virtmem.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  KEL_VMEM *heap = KEL_VMemCreate(NULL, 1 << 20);
  void *p = KEL_VMalloc(heap, 100);
  if (p != NULL)
    KEL_VFree(heap, p);
  KEL_VMemDestroy(heap);
  /* --- */
  REQUIRE(p != NULL);
  return 0;
}
