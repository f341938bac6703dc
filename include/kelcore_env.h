/* The process environment.
 *
 *     const char *levels = KEL_GetEnv("PLAYER_TRACE");
 *     KEL_TraceSet(levels != NULL ? levels : "keltime:0,*:1");
 *
 * Threads: safe from any, as long as no other one changes the environment.
 * Blocking: never.
 * Null: not allowed. */
#ifndef KELCORE_ENV_H
#define KELCORE_ENV_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* The value of the environment variable `name` (must not be null), exactly as
 * getenv() gives it: owned by the environment, null when unset. */
KEL_API const char *KEL_GetEnv(const char *name);

KEL_END_DECLS

#endif
