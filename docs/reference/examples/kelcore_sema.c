#include <kelcore_sema.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  KEL_SEMA *items = KEL_SemaCreate(NULL, 0);
  KEL_SemaPut(items);               /* any thread */
  if (KEL_SemaGet(items, 100) == 0) /* another one */
    printf("one item\n");
  KEL_SemaDestroy(items);
  /* --- */
  return 0;
}
