// The process environment.

#include "kelcore_env.h"

#include <stdlib.h>

const char *KEL_GetEnv(const char *name) {
  return getenv(name);
}
