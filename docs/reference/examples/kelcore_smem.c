#include <kelcore_smem.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  KEL_SMalloc_Init();
  if (KEL_SMalloc_Register(64, "packet") == 0) {
    void *p = KEL_SMalloc(64);
    if (p != NULL)
      KEL_SFree(p, 64);
    KEL_SMalloc_UnRegister(64);
  }
  KEL_SMalloc_Deinit();
  /* --- */
  return 0;
}
