#include <kelcore_trace.h>
#include <unistd.h>

#include "require.h"

static char path[] = "/tmp/kelcore-example-XXXXXX";

static void remove_file(void) {
  unlink(path);
}

int main(void) {
  const int fd = mkstemp(path);
  REQUIRE(fd != -1);
  close(fd);
  atexit(remove_file);
  const char *name = "film.ts";
  /* --- example --- */
  KEL_TraceInit(path);                    /* lock and optional file */
  KEL_TraceSet("player:4,keltime:0,*:1"); /* who may print how much */
  KEL_Trace("player", KEL_LEVEL_INFO, "player.c", __LINE__, __func__, "opened %s\n", name);
  KEL_TraceDeinit();
  /* --- */
  char line[100] = "";
  FILE *file = fopen(path, "r");
  REQUIRE(file != NULL && fgets(line, sizeof line, file) != NULL);
  fclose(file);
  REQUIRE(line[11] == ' ');
  return 0;
}
