// Start-up, shut-down and error texts.

#include "kelcore_system.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kelcore_time.h"

const char *KEL_GetErrorStr(uint32_t code) {
  switch (code) {
    case KEL_OK:
      return "OK";
    case KEL_ERR_OUT_OF_MEMORY:
      return "Out of memory";
    case KEL_ERR_THREAD_CREATE:
      return "Thread creation failed";
    case KEL_ERR_DISK_FULL:
      return "Disk is full";
    case KEL_ERR_NOT_SUPPORTED:
      return "Not supported";
    case KEL_ERR_FILE_OPEN:
      return "No such file or opening failed";
    case KEL_ERR_FILE_CREATE:
      return "File creation failed";
    case KEL_ERR_FILE_READ:
      return "File read failed";
    case KEL_ERR_FILE_WRITE:
      return "File write failed";
    case KEL_ERR_FILE_SEEK:
      return "File seek failed";
    case KEL_ERR_FILE_FORMAT:
      return "Not supported format of file";
    case KEL_ERR_STREAM:
      return "Stream error";
    case KEL_ERR_NO_BUFFER:
      return "No buffer";
    case KEL_ERR_BUFFER_SIZE:
      return "Invalid buffer size";
    case KEL_ERR_BUFFER_OVERFLOW:
      return "Buffer overflow";
    case KEL_ERR_END_OF_DATA:
      return "End of data (file, stream)";
    // A time-out is an outcome rather than a fault and has no text of its own.
    case KEL_ERR_TIMEOUT:
    default:
      return "FAIL";
  }
}

uint32_t KEL_GetLastError(void) {
  return static_cast<uint32_t>(errno);
}

const char *KEL_GetLastErrorStr(void) {
  return strerror(errno);
}

int32_t KEL_SystemInit(KEL_SYSTEM_CALLBACK init) {
  // The first calendar call makes the C library load its time zone: do that
  // here, before any thread runs, and not in the middle of a stream.
  tm now;
  KEL_GetlocalTime(&now);
  srand(static_cast<unsigned>(time(nullptr)));
  if (init != nullptr)
    init(nullptr, 0);
  return 0;
}

int32_t KEL_SystemUnInit(KEL_SYSTEM_CALLBACK uninit) {
  if (uninit != nullptr)
    uninit(nullptr, 0);
  return 0;
}
