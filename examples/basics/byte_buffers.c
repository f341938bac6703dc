/* The ring, which parsers read in place, and the circular buffer, which copies
 * in and out. Neither has a lock of its own. */
#include <kelcore_circular.h>
#include <kelcore_ring.h>
#include <string.h>

#include "require.h"

static void put(KEL_RING *ring, const char *text) {
  uint32_t size = 0;
  uint8_t *room = KELRing_GetWBuf(ring, &size);
  const size_t length = strlen(text);
  /* `size` is the whole ring: count what is held yourself. */
  REQUIRE(room != NULL && length <= size);
  memcpy(room, text, length);
  KELRing_FillWBuf(ring, (int32_t)length);
}

int main(void) {
  KEL_RING *ring = KELRing_Create(64);
  REQUIRE(ring != NULL);
  put(ring, "one;two;th");
  put(ring, "ree;");
  /* What is unread always lies in one piece. */
  for (;;) {
    uint32_t held = 0;
    const uint8_t *data = KELRing_GetRBuf(ring, &held);
    const uint8_t *stop = memchr(data, ';', held);
    if (stop == NULL)
      break;
    printf("%.*s\n", (int)(stop - data), (const char *)data);
    KELRing_DelRBuf(ring, (uint32_t)(stop - data) + 1);
  }
  KELRing_Destroy(ring);

  KEL_CIRCULAR *fifo = KELCircular_Create(8);
  REQUIRE(fifo != NULL);
  char out[4];
  REQUIRE(KELCircular_Push(fifo, "abcdef", 6) == 0);
  printf("too much is refused whole: %s\n",
         KELCircular_Push(fifo, "ghi", 3) != 0 ? "yes" : "no");
  REQUIRE(KELCircular_Pop(fifo, out, 4) == 0);
  REQUIRE(KELCircular_Push(fifo, "ghijk", 5) == 0); /* over the end */
  printf("%.4s\n", out);
  KELCircular_Destroy(fifo);
  return 0;
}
