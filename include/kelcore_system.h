/* Start-up, shut-down and error texts.
 *
 *     static int32_t ready(void *unused, int32_t zero) {
 *       (void)unused, (void)zero;
 *       return puts("ready");
 *     }
 *
 *     KEL_SystemInit(ready);
 *     printf("%s\n", KEL_GetErrorStr(KEL_ERR_OUT_OF_MEMORY));
 *     KEL_SystemUnInit(NULL);
 *
 * Threads: any thread may make every call; a signal handler may call
 * KEL_GetErrorStr and KEL_GetLastError.
 * Blocking: none blocks but by what a callback does.
 * Null: told where a pointer is taken. */
#ifndef KELCORE_SYSTEM_H
#define KELCORE_SYSTEM_H

#include "kelcore_types.h"

KEL_BEGIN_DECLS

/* Called once by KEL_SystemInit or KEL_SystemUnInit with (NULL, 0). Returns
 * whatever it likes: it is ignored. */
typedef int32_t (*KEL_SYSTEM_CALLBACK)(void *, int32_t);

/* Starts the library: seeds the C library's rand() with the time, then calls
 * `init` when it is not null. Tracing and non-cache allocators are set up
 * separately (KEL_TraceInit, KEL_MemInit). Returns 0 always. */
KEL_API int32_t KEL_SystemInit(KEL_SYSTEM_CALLBACK init);

/* Calls `uninit` when it is not null; nothing else. Returns 0 always. */
KEL_API int32_t KEL_SystemUnInit(KEL_SYSTEM_CALLBACK uninit);

/* The constant text of a status code (never null, never freed). A code
 * without a text of its own, KEL_ERR_TIMEOUT among them, gives "FAIL". */
KEL_API const char *KEL_GetErrorStr(uint32_t code);

/* The calling thread's errno, unchanged. */
KEL_API uint32_t KEL_GetLastError(void);

/* The text of the calling thread's errno, as strerror() gives it (never null): valid
 * until the thread's next call of that, owned by the C library. */
KEL_API const char *KEL_GetLastErrorStr(void);

KEL_END_DECLS

#endif
