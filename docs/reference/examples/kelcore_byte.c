#include <kelcore_byte.h>

#include "require.h"

int main(void) {
  const uint8_t bytes[] = {7, 0x12, 0x34, 0x56, 0x78};
  const uint32_t length = sizeof bytes;
  /* --- example --- */
  KEL_BYTE *r = KELByte_Open(bytes, length);
  if (r != NULL) {
    uint32_t end;
    uint32_t kind = KELByte_Get_char(r, &end); /* `end` becomes 1 when there is none */
    uint32_t tag = 0;
    if (!end && KELByte_Remain(r) >= sizeof tag) /* only the first byte is checked */
      tag = KELByte_Get_be_uint32(r, NULL);
    KELByte_Close(r);
    printf("kind %u, tag %08x\n", kind, tag);
  }
  /* --- */
  return 0;
}
