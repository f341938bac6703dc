/* A program's own traces, switched from outside. */
#include <kelcore_env.h>
#include <kelcore_trace.h>

#include "require.h"

/* --- macros --- */
/* Once per program: every source file names itself and its module. */
#define PLAYER_TRACE(level, ...) \
  KEL_Trace("player", level, "player", __LINE__, __func__, __VA_ARGS__)
#define PLAYER_ERROR(...) PLAYER_TRACE(KEL_LEVEL_ERROR, __VA_ARGS__)
#define PLAYER_DEBUG(...) PLAYER_TRACE(KEL_LEVEL_DEBUG, __VA_ARGS__)
/* --- */

static int opened(const char *path) {
  /* --- use --- */
  PLAYER_DEBUG("opening %s\n", path); /* formats bring their line ends */
  if (*path == '\0')
    PLAYER_ERROR("no path given\n");
  /* --- */
  return *path != '\0';
}

static int lines;

static void count_lines(const char *line) {
  (void)line;
  ++lines;
}

int main(void) {
  /* --- set up --- */
  /* First thing in main(), while there is one thread. */
  const char *levels = KEL_GetEnv("PLAYER_TRACE");
  REQUIRE(KEL_TraceInit(NULL) == 0); /* or a path, which is emptied */
  KEL_TraceSet(levels != NULL ? levels : "player:2,keltime:0,*:1");
  /* --- */
  KEL_TraceSetCB(count_lines, 0);
  REQUIRE(opened("film.ts"));
  REQUIRE(!opened(""));
  printf("lines traced: %d\n", lines);
  KEL_TraceDeinit();
  return 0;
}
