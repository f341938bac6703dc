/* Checksums, and a table from texts to 64-bit values. */
#include <kelcore_hash.h>
#include <string.h>

#include "require.h"

int main(void) {
  const char *text = "123456789";
  printf("CRC-32 %08x\n", (unsigned)KEL_Hash_crc32(text, (uint32_t)strlen(text)));

  /* Far more slots than entries: an entry that lands ten places from home is
   * stored, but not found again. The 1 lets the table grow. */
  KEL_HASHMAP *table = KEL_Hashmap_Create(64, 1);
  REQUIRE(table != NULL);
  REQUIRE(KEL_Hashmap_Hash(table, "video", 256) >= 0);
  REQUIRE(KEL_Hashmap_Hash(table, "audio", 257) >= 0); /* the key is copied */

  uint64_t pid = 0;
  REQUIRE(KEL_Hashmap_Get(table, "audio", &pid) == 0);
  printf("audio is on %u\n", (unsigned)pid);
  REQUIRE(KEL_Hashmap_Del(table, "audio") == 0);
  printf("audio is %s\n", KEL_Hashmap_Get(table, "audio", &pid) == 0 ? "there" : "gone");

  KEL_Hashmap_DestroyFull(table, NULL); /* with the copies of the keys */
  return 0;
}
