#include <kelcore_bit.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  const uint8_t bytes[4 + 3] = {0x42, 0xC0, 0x1E, 0xA6}; /* 4, and 3 of slack */
  KEL_BIT *b = KELBitOpen(bytes, 4);
  if (b != NULL) {
    uint32_t profile = KELBitGetBit(b, 8);
    KELBitFlush(b, 8);
    uint32_t level = KELBitGetBit(b, 8);
    printf("profile %u, level %u\n", profile, level);
    KELBitClose(b);
  }
  /* --- */
  return 0;
}
