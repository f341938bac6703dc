#include <kelcore_shm.h>
#include <unistd.h>

#include "require.h"

typedef struct {
  uint32_t pictures;
} Totals;

int main(void) {
  char name[64];
  snprintf(name, sizeof name, "header-example.%d", (int)getpid());
  /* --- example --- */
  uint8_t created;
  Totals *t = KEL_ShmMalloc(name, sizeof *t, &created, __FILE__, __LINE__, __func__);
  if (t != NULL) {
    if (created) /* else somebody has begun it, who may be a stranger */
      t->pictures = 1;
    KEL_ShmFree(t);
  }
  /* --- */
  return 0;
}
