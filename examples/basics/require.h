/* What the examples do about failures: say where, and stop. */
#ifndef REQUIRE_H
#define REQUIRE_H

#include <stdio.h>
#include <stdlib.h>

#define REQUIRE(condition)                                                    \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
      exit(EXIT_FAILURE);                                                     \
    }                                                                         \
  } while (0)

#endif
