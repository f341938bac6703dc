// Clocks and time arithmetic.

#include "kelcore_time.h"

namespace {

constexpr int64_t kMsPerSecond = 1'000;
constexpr int64_t kUsPerSecond = 1'000'000;
constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kUsPerMs = 1'000;
constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kNsPerMs = 1'000'000;

timespec read_clock(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}

}  // namespace

uint64_t KEL_GetSystemTick(void) {
  const timespec now = read_clock(CLOCK_MONOTONIC);
  return KEL_TIMESPECtoMS(&now);
}

uint64_t KEL_GetSystemTickUS(void) {
  const timespec now = read_clock(CLOCK_MONOTONIC);
  return static_cast<uint64_t>(now.tv_sec * kUsPerSecond + now.tv_nsec / kNsPerUs);
}

int64_t KEL_GetEpochTime(void) {
  return read_clock(CLOCK_REALTIME).tv_sec;
}

uint64_t KEL_TIMESPECtoMS(const timespec *time) {
  return static_cast<uint64_t>(time->tv_sec) * kMsPerSecond +
         static_cast<uint64_t>(time->tv_nsec / kNsPerMs);
}

void KEL_TimeMStoTimeval(uint64_t ms, timeval *time) {
  time->tv_sec = static_cast<time_t>(ms / kMsPerSecond);
  time->tv_usec = static_cast<suseconds_t>(ms % kMsPerSecond) * kUsPerMs;
}

void KEL_TimeMStoTimespec(uint64_t ms, timespec *time) {
  time->tv_sec = static_cast<time_t>(ms / kMsPerSecond);
  time->tv_nsec = static_cast<long>(ms % kMsPerSecond) * kNsPerMs;
}

int64_t KEL_TimevalDiff(const timeval *start, const timeval *end, timeval *result) {
  // Stored without borrowing: the two fields together still give the right
  // number of milliseconds.
  result->tv_sec = end->tv_sec - start->tv_sec;
  result->tv_usec = end->tv_usec - start->tv_usec;
  return result->tv_sec * kMsPerSecond + result->tv_usec / kUsPerMs;
}

timespec KEL_TimespecAdd(timespec a, timespec b) {
  timespec sum{a.tv_sec + b.tv_sec, a.tv_nsec + b.tv_nsec};
  if (sum.tv_nsec >= kNsPerSecond) {
    sum.tv_nsec -= kNsPerSecond;
    sum.tv_sec += 1;
  }
  return sum;
}

int32_t KEL_GetlocalTime(tm *time_out) {
  const time_t now = time(nullptr);
  *time_out = *localtime(&now);
  return 0;
}
