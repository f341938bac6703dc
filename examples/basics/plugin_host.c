/* Loads a plug-in whose path is given, asks it for its functions, uses them, and
 * unloads it. */
#include <kelcore_library.h>
#include <string.h>

#include "plugin.h"
#include "require.h"

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s PLUGIN\n", argv[0]);
    return EXIT_FAILURE;
  }
  void *library = KEL_LibraryLoad(argv[1]);
  REQUIRE(library != NULL);

  /* C keeps pointers to data and to functions apart: copy the one to the other. */
  void *address = KEL_LibraryGetFunc(library, PLUGIN_ENTRY);
  REQUIRE(address != NULL);
  plugin_entry entry;
  memcpy(&entry, &address, sizeof entry);

  const struct plugin *plugin = entry();
  printf("%s: 21 becomes %d\n", plugin->name, plugin->apply(21));

  REQUIRE(KEL_LibraryUnLoad(library) == 0); /* nothing of it may be used now */
  return 0;
}
