/* Text helpers. */
#include <kelcore_string.h>

#include "require.h"

int main(void) {
  const char *path = "/media/usb/film.backup.ts";
  const char *extension = KEL_strrstr(path, "."); /* the last one */
  REQUIRE(extension != NULL);
  printf("extension %s\n", extension);

  char name[16];
  REQUIRE(KEL_strtrim("cfg[video]x", "[", "]", name, sizeof name) != NULL);
  printf("between the brackets: %s\n", name);

  char code[8];
  printf("four characters: %s\n", KEL_FourCC_String(0x31637661, code));

  char small[8];
  KEL_snprintf(small, sizeof small, "%s", "abcdefghij");
  printf("cut to fit: %s\n", small);
  return 0;
}
