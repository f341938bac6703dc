/* Tracing: what is printed is decided by module and level, in one text that can
 * come from a command line or an environment variable.
 *
 * The time at the beginning of each line changes from run to run; a callback
 * takes the lines here and prints what follows it. */
#include <kelcore_trace.h>
#include <string.h>

#include "require.h"

#define TRACE(module, level, ...) \
  KEL_Trace(module, level, "trace_levels", __LINE__, __func__, __VA_ARGS__)

/* Called on the tracing thread: be brief, and do not trace. */
static void print_without_time(const char *line) {
  const char *text = strchr(line, ' ');
  fputs(text != NULL ? text + 1 : line, stdout);
}

int main(void) {
  REQUIRE(KEL_TraceInit(NULL) == 0); /* a path here also writes to a file */
  KEL_TraceSetCB(print_without_time, 0);

  /* "decoder" up to DEBUG, everything else errors only. The first entry that
   * fits decides, so "*" stands last. */
  KEL_TraceSet("decoder:3,keltime:0,*:1");

  TRACE("decoder", KEL_LEVEL_DEBUG, "frame %d is late\n", 7);
  TRACE("decoder", KEL_LEVEL_TRACE, "not printed: above the module's level\n");
  TRACE("network", KEL_LEVEL_INFO, "not printed: only errors of the others\n");
  TRACE("network", KEL_LEVEL_ERROR, "connection lost\n");

  KEL_TraceDeinit();
  return 0;
}
