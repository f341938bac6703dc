#include <kelcore_env.h>
#include <kelcore_trace.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  const char *levels = KEL_GetEnv("PLAYER_TRACE");
  KEL_TraceSet(levels != NULL ? levels : "keltime:0,*:1");
  /* --- */
  return 0;
}
