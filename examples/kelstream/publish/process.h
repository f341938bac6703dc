// Whether a process is still there, also when its number is used again.
#pragma once

#include <cstdint>

namespace kelstream {

struct ProcessId {
  int64_t number = 0;  // 0: none
  uint64_t start = 0;  // when it started, in ticks since the system did

  bool operator==(const ProcessId &) const = default;
};

ProcessId ThisProcess();
bool IsAlive(const ProcessId &process);

}  // namespace kelstream
