// How a module traces. A source file states once who it is:
//
//     KEL_TRACE_SOURCE("kelqueue", "kelcore_queue")
//
// and then writes TRACE_ERROR("mutex lock failed\n"). Code that several
// exported functions share names the function on whose behalf it speaks with
// TRACE_AS. Values are evaluated only when some module could print the level.
#pragma once

#include <stdint.h>

#include "internal/relaxed.h"
#include "kelcore_trace.h"

namespace kel {

// The highest level that any entry of the table admits: what lies above it is
// turned away before a lock is taken. Written by KEL_TraceSet alone.
extern int32_t trace_ceiling;

inline bool trace_may_print(int32_t level) {
  return __builtin_expect(level <= load_relaxed(trace_ceiling), 0);
}

struct TraceSource {
  const char *module;
  const char *file;
};

// What %x and %d show of a pointer or a 64-bit value: its low 32 bits.
inline uint32_t low32(const volatile void *pointer) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}
inline uint32_t low32(uint64_t value) {
  return static_cast<uint32_t>(value);
}
inline int32_t low32_signed(uint64_t value) {
  return static_cast<int32_t>(value);
}

}  // namespace kel

#define KEL_TRACE_SOURCE(module, file)                   \
  namespace {                                            \
  constexpr kel::TraceSource kTraceSource{module, file}; \
  }

// KEL_Trace looks at the level itself; asking before only spares the call. Where
// branches are counted, each trace would be two that nobody can tell apart.
#ifdef KELCORE_COVERAGE
#define KEL_TRACE_GATE(level)
#else
#define KEL_TRACE_GATE(level) if (kel::trace_may_print(level))
#endif

#define TRACE_FROM(source, func, level, ...)                                           \
  do {                                                                                 \
    KEL_TRACE_GATE(level)                                                              \
    KEL_Trace((source).module, (level), (source).file, __LINE__, (func), __VA_ARGS__); \
  } while (0)

#define TRACE_AS(func, level, ...) TRACE_FROM(kTraceSource, func, level, __VA_ARGS__)
#define TRACE_ERROR(...) TRACE_AS(__func__, KEL_LEVEL_ERROR, __VA_ARGS__)
#define TRACE_INFO(...) TRACE_AS(__func__, KEL_LEVEL_INFO, __VA_ARGS__)
#define TRACE_DEBUG(...) TRACE_AS(__func__, KEL_LEVEL_DEBUG, __VA_ARGS__)
#define TRACE_TRACE(...) TRACE_AS(__func__, KEL_LEVEL_TRACE, __VA_ARGS__)
