/* Plug-ins: shared libraries loaded at run time.
 *
 *     void *library = KEL_LibraryLoad("libm.so.6");
 *     if (library != NULL) {
 *       double (*root)(double) = NULL;
 *       void *address = KEL_LibraryGetFunc(library, "sqrt");
 *       memcpy(&root, &address, sizeof root); // C keeps data and functions apart
 *       if (root != NULL)
 *         printf("%.3f\n", root(2));
 *       KEL_LibraryUnLoad(library);
 *     }
 *
 * Failures are traced under "kellibrary".
 *
 * Threads: any thread may make every call.
 * Blocking: as the dynamic loader does, which reads files and runs constructors.
 * Null: a null path is the program itself, a null library the program with all
 * that it is linked with; `name` must not be null. */
#ifndef KELCORE_LIBRARY_H
#define KELCORE_LIBRARY_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* Loads a shared library with all its symbols bound at once and visible to
 * itself only. Returns a handle to be released with KEL_LibraryUnLoad, or null.
 * Runs the library's constructors. */
KEL_API KEL_NODISCARD void *KEL_LibraryLoad(const char *path);

/* The address of a symbol, or null. */
KEL_API void *KEL_LibraryGetFunc(void *library, const char *name);

/* Releases the handle; null is ignored. Returns 0 always. */
KEL_API int32_t KEL_LibraryUnLoad(void *library);

KEL_END_DECLS

#endif
