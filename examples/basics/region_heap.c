/* A region heap: blocks of any size inside one region, which goes away in one
 * piece. */
#include <kelcore_virtmem.h>
#include <string.h>

#include "require.h"

int main(void) {
  /* Without a region of our own the heap takes one. It should be large: blocks
   * below the address of the heap's record are never handed out, and small
   * regions may lie there. */
  KEL_VMEM *heap = KEL_VMemCreate(NULL, 1 << 20);
  REQUIRE(heap != NULL);
  const uint32_t all = KEL_VGetFree(heap);

  char *texts[3];
  for (uint32_t i = 0; i < 3; ++i) {
    texts[i] = KEL_VMalloc(heap, 100 * (i + 1)); /* what it holds is undefined */
    REQUIRE(texts[i] != NULL);
    snprintf(texts[i], 100, "block %u", (unsigned)i);
  }
  printf("%s, %s, %s\n", texts[0], texts[1], texts[2]);
  printf("taken: %u bytes of data and headers\n", (unsigned)(all - KEL_VGetFree(heap)));

  /* Freed neighbours become one block again. */
  for (int i = 0; i < 3; ++i)
    REQUIRE(KEL_VFree(heap, texts[i]) == 0);
  printf("all is free again: %s\n", KEL_VGetFree(heap) == all ? "yes" : "no");

  KEL_VMemDestroy(heap);
  return 0;
}
