/* The byte reader and the bit cursor take a small made-up header apart:
 *   4 characters "DEMO", 2 bytes version (big endian), then bits: 4 flags,
 *   12 width / 16, an Exp-Golomb number. */
#include <kelcore_bit.h>
#include <kelcore_byte.h>
#include <string.h>

#include "require.h"

enum { kHeader = 9, kSlack = 7 };

static uint32_t exp_golomb(KEL_BIT *bits) {
  uint32_t zeros = 0;
  while (KELBitGet1Bit(bits) == 0)
    ++zeros;
  return (1u << zeros) - 1 + (zeros > 0 ? KELBitGetBit(bits, zeros) : 0);
}

int main(void) {
  /* Both readers may touch bytes behind the last one: give them slack. */
  const uint8_t data[kHeader + kSlack] = {'D', 'E', 'M', 'O', 1, 2, 0x90, 0x28, 0x30};

  KEL_BYTE *bytes = KELByte_Open(data, kHeader);
  REQUIRE(bytes != NULL);
  char magic[5] = "";
  uint32_t end = 0;
  REQUIRE(KELByte_Get_4char(bytes, magic, &end) != NULL && strcmp(magic, "DEMO") == 0);
  /* Integers only check that they begin within the data: ask first. */
  REQUIRE(KELByte_Remain(bytes) >= 2);
  printf("version 0x%04x\n", (unsigned)KELByte_Get_be_uint16(bytes, &end));
  const uint32_t at = KELByte_Pos(bytes);
  KELByte_Close(bytes);

  /* The bit cursor checks nothing at all; it is for data whose size is known. */
  KEL_BIT *bits = KELBitOpen(data + at, kHeader - at);
  REQUIRE(bits != NULL);
  printf("flags %u\n", (unsigned)KELBitGetBit(bits, 4));
  printf("width %u\n", (unsigned)KELBitGetBit(bits, 12) * 16);
  printf("count %u\n", (unsigned)exp_golomb(bits));
  KELBitClose(bits);
  return 0;
}
