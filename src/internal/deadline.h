// The one place where a time-out becomes an absolute deadline.
#pragma once

#include <stdint.h>
#include <time.h>

#include "kelcore_time.h"

namespace kel {

// Bounded waits of POSIX count against the wall clock.
inline timespec deadline_after(timespec span) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return KEL_TimespecAdd(now, span);
}

inline timespec deadline_after_ms(uint32_t ms) {
  timespec span;
  KEL_TimeMStoTimespec(ms, &span);
  return deadline_after(span);
}

}  // namespace kel
