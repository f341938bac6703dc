// System V shared memory segments.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "access.h"

namespace kelctl {

struct Segment {
  uint32_t key = 0;
  int32_t id = 0;
  uint64_t size = 0;
  uint64_t attached = 0;
  pid_t creator = 0;
  pid_t last = 0;      // the last process to attach or detach
  bool dying = false;  // marked for removal
  Access access;
};

// The key that the library gives a segment's name; 0 shares nothing.
uint32_t KeyOfName(const std::string &name);

// Throws Failure.
std::vector<Segment> ListSegments();

// None when no segment has the key. Throws Failure.
std::optional<Segment> FindSegment(uint32_t key);

// Its first `length` bytes, or all when it has fewer. Throws Failure.
std::string ReadSegment(const Segment &segment, uint64_t length);

// Throws Failure.
void RemoveSegment(const Segment &segment);

}  // namespace kelctl
