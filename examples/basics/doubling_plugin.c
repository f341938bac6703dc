/* A plug-in for plugin_host.c: a shared object of its own. */
#include "plugin.h"

static int apply(int value) {
  return 2 * value;
}

const struct plugin *example_plugin(void);
const struct plugin *example_plugin(void) {
  static const struct plugin plugin = {"doubling", apply};
  return &plugin;
}
