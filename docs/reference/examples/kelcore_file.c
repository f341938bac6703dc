#include <kelcore_file.h>
#include <unistd.h>

#include "require.h"

static char path[] = "/tmp/kelcore-example-XXXXXX";
static int used;

static void remove_file(void) {
  unlink(path);
}

static void use(const uint8_t *packet) {
  REQUIRE(packet[0] == 'x');
  ++used;
}

int main(void) {
  const int fd = mkstemp(path);
  REQUIRE(fd != -1);
  atexit(remove_file);
  for (int i = 0; i < 2 * 188 + 7; ++i)
    REQUIRE(write(fd, "x", 1) == 1);
  close(fd);
  /* --- example --- */
  FILE *f = KEL_FileOpen(path, KEL_FILE_MODE_READ);
  if (f != NULL) {
    uint8_t packet[188];
    while (KEL_FileRead(f, packet, sizeof packet) == sizeof packet)
      use(packet);
    KEL_FileClose(f);
  }
  /* --- */
  REQUIRE(used == 2);
  return 0;
}
