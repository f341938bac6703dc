/* Starting the library, error codes as texts, and the environment. */
#include <kelcore_env.h>
#include <kelcore_system.h>

#include "require.h"

/* Runs inside KEL_SystemInit, for what the application has to set up. */
static int32_t set_up(void *argument, int32_t value) {
  (void)argument;
  (void)value;
  puts("set up");
  return 0;
}

int main(void) {
  REQUIRE(KEL_SystemInit(set_up) == 0);

  printf("0x%08X is \"%s\"\n", (unsigned)KEL_ERR_FILE_READ, KEL_GetErrorStr(KEL_ERR_FILE_READ));

  /* A variable that is not set gives null, not an empty text. */
  const char *level = KEL_GetEnv("EXAMPLE_TRACE_LEVEL");
  printf("EXAMPLE_TRACE_LEVEL is %s\n", level != NULL ? level : "not set");

  REQUIRE(KEL_SystemUnInit(NULL) == 0);
  return 0;
}
