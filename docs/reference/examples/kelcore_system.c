#include <kelcore_system.h>

#include "require.h"

/* --- example --- */
static int32_t ready(void *unused, int32_t zero) {
  (void)unused, (void)zero;
  return puts("ready");
}
/* --- */

int main(void) {
  /* --- example --- */

  KEL_SystemInit(ready);
  printf("%s\n", KEL_GetErrorStr(KEL_ERR_OUT_OF_MEMORY));
  KEL_SystemUnInit(NULL);
  /* --- */
  return 0;
}
