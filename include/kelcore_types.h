/* Shared by every public header: status codes, the time-out constant, the
 * version, and the attributes that tell the compiler what the text says. */
#ifndef KELCORE_TYPES_H
#define KELCORE_TYPES_H

#include <stdint.h>

/* The version of the headers: major.minor.patch, as text, and as one number that grows
 * with it, for comparisons also in #if. Minor and patch stay below 100. */
#define KELCORE_VERSION_MAJOR 1
#define KELCORE_VERSION_MINOR 0
#define KELCORE_VERSION_PATCH 0
#define KELCORE_VERSION_STRING "1.0.0"
#define KELCORE_VERSION 10000 /* major * 10000 + minor * 100 + patch */

#ifdef __cplusplus
#define KEL_BEGIN_DECLS extern "C" {
#define KEL_END_DECLS }
#else
#define KEL_BEGIN_DECLS
#define KEL_END_DECLS
#endif

#define KEL_API __attribute__((visibility("default")))
#define KEL_NODISCARD __attribute__((warn_unused_result))
#define KEL_NORETURN __attribute__((noreturn))
/* text: index of the format argument, first: index of the first value. */
#define KEL_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))

/* A time-out is an unsigned number of milliseconds: 0 does not wait,
 * KEL_WAIT_FOREVER has no limit, any other value is one bounded wait against an
 * absolute CLOCK_REALTIME deadline (setting the clock forward shortens it).
 *
 * Messages between processes differ: to KEL_IPCSend, KEL_IPCSend_CustomMsg and
 * KEL_IPCReceive 0 means what the queue was opened with, a wait without limit or
 * none at all, and values above 4294 wrap around (KEL_WAIT_FOREVER is 4.3 seconds
 * there). KEL_IPC_MsgRecv takes a signed number and waits without limit below 1. */
#define KEL_WAIT_FOREVER 0x7FFFFFFFu

/* Status codes. 0 is success, failures have the top bit set.
 * KEL_GetErrorStr() turns a code into its text. */
#define KEL_OK 0x00000000u                  /* success */
#define KEL_ERR_FAIL 0x80000000u            /* any other failure */
#define KEL_ERR_OUT_OF_MEMORY 0x80000001u   /* memory is short */
#define KEL_ERR_THREAD_CREATE 0x80000002u   /* a thread could not be made */
#define KEL_ERR_DISK_FULL 0x80000005u       /* no room on the disk */
#define KEL_ERR_NOT_SUPPORTED 0x80000006u   /* not supported */
#define KEL_ERR_TIMEOUT 0x80000007u         /* a wait expired */
#define KEL_ERR_FILE_OPEN 0x80000010u       /* missing, or cannot be opened */
#define KEL_ERR_FILE_CREATE 0x80000011u     /* cannot be made */
#define KEL_ERR_FILE_READ 0x80000012u       /* reading failed */
#define KEL_ERR_FILE_WRITE 0x80000013u      /* writing failed */
#define KEL_ERR_FILE_SEEK 0x80000014u       /* seeking failed */
#define KEL_ERR_FILE_FORMAT 0x80000019u     /* not in a format that is known */
#define KEL_ERR_STREAM 0x8000001Au          /* damaged stream */
#define KEL_ERR_NO_BUFFER 0x80000050u       /* no buffer to be had */
#define KEL_ERR_BUFFER_SIZE 0x80000051u     /* a buffer of the wrong size */
#define KEL_ERR_BUFFER_OVERFLOW 0x80000052u /* more than a buffer holds */
#define KEL_ERR_END_OF_DATA 0x80000054u     /* end of file or stream */

#endif
