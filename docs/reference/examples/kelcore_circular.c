#include <kelcore_circular.h>

#include "require.h"

static int used;

static void use(const uint8_t *packet) {
  REQUIRE(packet[0] == 0x47);
  ++used;
}

int main(void) {
  /* --- example --- */
  KEL_CIRCULAR *fifo = KELCircular_Create(1024);
  if (fifo != NULL) {
    uint8_t packet[188] = {0x47};
    if (KELCircular_Push(fifo, packet, sizeof packet) != 0)
      printf("no room, nothing was taken\n");
    while (KELCircular_Pop(fifo, packet, sizeof packet) == 0)
      use(packet);
    KELCircular_Destroy(fifo);
  }
  /* --- */
  REQUIRE(used == 1);
  return 0;
}
