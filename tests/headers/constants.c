/* The public constants, by value and type: they are compiled into programs, where the
 * comparison of the binary interface does not see them. What changes one of these breaks
 * programs that were built before; a new one needs its line (check_constants.cmake). */
#include "kelcore.h"

#define PINNED(name, value)                                                                 \
  _Static_assert((name) == (value) && _Generic((name), __typeof__(value) : 1, default : 0), \
                 #name " has another value or type than programs were built with")

PINNED(KEL_WAIT_FOREVER, 0x7FFFFFFFu);

PINNED(KEL_OK, 0u);
PINNED(KEL_ERR_FAIL, 0x80000000u);
PINNED(KEL_ERR_OUT_OF_MEMORY, 0x80000001u);
PINNED(KEL_ERR_THREAD_CREATE, 0x80000002u);
PINNED(KEL_ERR_DISK_FULL, 0x80000005u);
PINNED(KEL_ERR_NOT_SUPPORTED, 0x80000006u);
PINNED(KEL_ERR_TIMEOUT, 0x80000007u);
PINNED(KEL_ERR_FILE_OPEN, 0x80000010u);
PINNED(KEL_ERR_FILE_CREATE, 0x80000011u);
PINNED(KEL_ERR_FILE_READ, 0x80000012u);
PINNED(KEL_ERR_FILE_WRITE, 0x80000013u);
PINNED(KEL_ERR_FILE_SEEK, 0x80000014u);
PINNED(KEL_ERR_FILE_FORMAT, 0x80000019u);
PINNED(KEL_ERR_STREAM, 0x8000001Au);
PINNED(KEL_ERR_NO_BUFFER, 0x80000050u);
PINNED(KEL_ERR_BUFFER_SIZE, 0x80000051u);
PINNED(KEL_ERR_BUFFER_OVERFLOW, 0x80000052u);
PINNED(KEL_ERR_END_OF_DATA, 0x80000054u);

PINNED(KEL_FILE_MODE_CREATE, 0x1u);
PINNED(KEL_FILE_MODE_READ, 0x2u);
PINNED(KEL_FILE_MODE_WRITE, 0x4u);
PINNED(KEL_FILE_MODE_RDWR, 0x8u);
PINNED(KEL_FILE_MODE_APPEND, 0x10u);
PINNED(KEL_FILE_MODE_TEXT, 0xF0000000u);

PINNED(KEL_NO_FILL, 0xFFFFFFFFu);
PINNED(KEL_MSG_RECEIVED, 16);

PINNED(KEL_LEVEL_NONE, 0);
PINNED(KEL_LEVEL_ERROR, 1);
PINNED(KEL_LEVEL_INFO, 2);
PINNED(KEL_LEVEL_DEBUG, 3);
PINNED(KEL_LEVEL_TRACE, 4);
