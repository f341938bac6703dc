#include <kelcore_string.h>
#include <string.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  char name[16], code[5];
  KEL_strtrim("cfg[video]x", "[", "]", name, sizeof name); /* "video" */
  KEL_FourCC_String(0x31637661, code);                     /* "avc1" */
  /* --- */
  REQUIRE(strcmp(name, "video") == 0 && strcmp(code, "avc1") == 0);
  return 0;
}
