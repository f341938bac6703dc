// Traces of the application, under the module "kelstream".
#pragma once

#include <kelcore_trace.h>

// __FILE_NAME__ without the path; compilers that lack it give the whole one.
#ifdef __FILE_NAME__
#define KELSTREAM_FILE __FILE_NAME__
#else
#define KELSTREAM_FILE __FILE__
#endif

#define KELSTREAM_TRACE(level, ...) \
  KEL_Trace("kelstream", (level), KELSTREAM_FILE, __LINE__, __func__, __VA_ARGS__)
