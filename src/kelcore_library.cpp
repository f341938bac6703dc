// Plug-ins: a thin layer over the dynamic loader.

#include "kelcore_library.h"

#include <dlfcn.h>

#include "internal/trace.h"

KEL_TRACE_SOURCE("kellibrary", "kelcore_library")

void *KEL_LibraryLoad(const char *path) {
  void *library = dlopen(path, RTLD_NOW);
  if (library == nullptr) {
    // Taken also when nobody is told: the loader keeps it until then.
    const char *error = dlerror();
    TRACE_ERROR("Cannot load library err(%s)\n", error);
  }
  return library;
}

void *KEL_LibraryGetFunc(void *library, const char *name) {
  void *symbol = dlsym(library, name);
  if (symbol == nullptr) {
    // A symbol may really be null; then the loader has nothing to complain of.
    const char *error = dlerror();
    TRACE_ERROR("Cannot load symbol '%s', err(%s)\n", name, error != nullptr ? error : "?");
  }
  return symbol;
}

int32_t KEL_LibraryUnLoad(void *library) {
  if (library != nullptr)
    dlclose(library);
  return 0;
}
