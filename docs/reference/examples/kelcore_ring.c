#include <kelcore_ring.h>
#include <unistd.h>

#include "require.h"

static uint32_t parse(const uint8_t *from, uint32_t held) {
  REQUIRE(held == 5 && from[0] == 'b');
  return 2;
}

int main(void) {
  int ends[2];
  REQUIRE(pipe(ends) == 0);
  REQUIRE(write(ends[1], "bytes", 5) == 5);
  const int fd = ends[0];
  /* --- example --- */
  KEL_RING *ring = KELRing_Create(65536);
  if (ring != NULL) {
    uint32_t size, held;
    KELRing_GetRBuf(ring, &held);
    uint8_t *to = KELRing_GetWBuf(ring, &size);
    ssize_t got = read(fd, to, size - held); /* `size` is the whole ring */
    if (got > 0)
      KELRing_FillWBuf(ring, (int32_t)got);
    uint8_t *from = KELRing_GetRBuf(ring, &held);
    KELRing_DelRBuf(ring, parse(from, held));
    /* --- */
    REQUIRE(KELRing_GetRBuf(ring, &held) == from + 2 && held == 3);
    /* --- example --- */
    KELRing_Destroy(ring);
  }
  /* --- */
  close(ends[0]);
  close(ends[1]);
  return 0;
}
