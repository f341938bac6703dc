/* Files: writing, reading back, attributes, and a settings file of one line. */
#include <kelcore_file.h>
#include <string.h>
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

  FILE *file = KEL_FileOpen(path, KEL_FILE_MODE_WRITE);
  REQUIRE(file != NULL);
  REQUIRE(KEL_FileWrite(file, "twelve bytes", 12) == 12);
  REQUIRE(KEL_FileSync(file) == 0); /* on the disk, not only on the way */
  KEL_FileClose(file);

  KEL_FILE_ATTR attributes;
  REQUIRE(KEL_GetFileAttr(path, &attributes) == 0);
  printf("%u bytes, %s\n", (unsigned)attributes.size,
         attributes.is_dir != 0 ? "a directory" : "a file");

  char text[16] = "";
  file = KEL_FileOpen(path, KEL_FILE_MODE_READ);
  REQUIRE(file != NULL);
  KEL_FileSeek(file, 7, 0);
  /* Fewer bytes than asked for: the end, or an error that ferror() tells. */
  const uint64_t count = KEL_FileRead(file, text, sizeof text - 1);
  printf("from byte 7 on: \"%s\" (%u)\n", text, (unsigned)count);
  KEL_FileClose(file);

  /* Putting a line replaces the whole file. */
  REQUIRE(KEL_FEdit_Put(path, "volume=7") == 0);
  REQUIRE(KEL_FEdit_Put(path, "volume=8") == 0);
  file = KEL_FileOpen(path, KEL_FILE_MODE_READ | KEL_FILE_MODE_TEXT);
  REQUIRE(file != NULL);
  while (KEL_FileReadLine(file, text, sizeof text) != NULL)
    printf("setting: %s", text);
  KEL_FileClose(file);
  return 0;
}
