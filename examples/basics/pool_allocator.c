/* The pool allocator: blocks of registered sizes, zeroed, without a search. */
#include <kelcore_smem.h>

#include "require.h"

struct packet {
  uint32_t sequence;
  uint8_t bytes[60];
};

int main(void) {
  REQUIRE(KEL_SMalloc_Init() == 0);
  /* Register first thing, and once: a size that is not registered is refused. */
  REQUIRE(KEL_SMalloc_Register(sizeof(struct packet), "packet") == 0);
  printf("blocks of %u bytes are for: %s\n", (unsigned)sizeof(struct packet),
         KEL_SMemGetName(sizeof(struct packet)));

  struct packet *packet = KEL_SMalloc(sizeof *packet);
  REQUIRE(packet != NULL);
  printf("a fresh block is zeroed: %s\n", packet->sequence == 0 ? "yes" : "no");
  packet->sequence = 1;

  REQUIRE(KEL_SMalloc(100) == NULL); /* no class of that size */

  /* The size says which class the block goes back to. */
  KEL_SFree(packet, sizeof *packet);

  REQUIRE(KEL_SMalloc_UnRegister(sizeof(struct packet)) == 0);
  KEL_SMalloc_Deinit();
  return 0;
}
