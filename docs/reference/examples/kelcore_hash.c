#include <kelcore_hash.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  KEL_HASHMAP *pids = KEL_Hashmap_Create(64, 1);
  if (pids != NULL) {
    KEL_Hashmap_Hash(pids, "video", 256); /* the key is copied */
    uint64_t pid;
    if (KEL_Hashmap_Get(pids, "video", &pid) == 0)
      printf("video is on %u\n", (unsigned)pid);
    KEL_Hashmap_DestroyFull(pids, NULL);
  }
  /* --- */
  return 0;
}
