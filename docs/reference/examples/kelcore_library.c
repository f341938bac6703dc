#include <kelcore_library.h>
#include <string.h>

#include "require.h"

int main(void) {
  /* --- example --- */
  void *library = KEL_LibraryLoad("libm.so.6");
  if (library != NULL) {
    double (*root)(double) = NULL;
    void *address = KEL_LibraryGetFunc(library, "sqrt");
    memcpy(&root, &address, sizeof root); /* C keeps data and functions apart */
    if (root != NULL)
      printf("%.3f\n", root(2));
    KEL_LibraryUnLoad(library);
  }
  /* --- */
  return 0;
}
