/* The version as programs ask for it; EXPECTED_... are the project's. */
#include "kelcore.h"

#if KELCORE_VERSION < 10000 || KELCORE_VERSION >= (KELCORE_VERSION_MAJOR + 1) * 10000
#error "no number for comparisons"
#endif

_Static_assert(KELCORE_VERSION_MAJOR == EXPECTED_MAJOR, "major");
_Static_assert(KELCORE_VERSION_MINOR == EXPECTED_MINOR, "minor");
_Static_assert(KELCORE_VERSION_PATCH == EXPECTED_PATCH, "patch");
_Static_assert(KELCORE_VERSION ==
                   EXPECTED_MAJOR * 10000 + EXPECTED_MINOR * 100 + EXPECTED_PATCH,
               "number");
_Static_assert(__builtin_strcmp(KELCORE_VERSION_STRING, EXPECTED_STRING) == 0, "text");
