/* What the host and its plug-ins agree on. */
#ifndef PLUGIN_H
#define PLUGIN_H

struct plugin {
  const char *name;
  int (*apply)(int value);
};

/* Every plug-in exports this function under this name. */
#define PLUGIN_ENTRY "example_plugin"
typedef const struct plugin *(*plugin_entry)(void);

#endif
