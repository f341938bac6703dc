// System V shared memory segments.

#include "segment.h"

#include <kelcore_hash.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>

#include "report.h"

namespace kelctl {

namespace {

// Tells of all segments, also those that this user may not ask about.
constexpr const char kSystemList[] = "/proc/sysvipc/shm";
constexpr unsigned kMarkedForRemoval = 01000;

std::optional<Segment> ParseLine(const std::string &line) {
  Segment segment;
  int key = 0;
  unsigned mode = 0, uid = 0;
  unsigned long long size = 0, attached = 0;
  if (std::sscanf(line.c_str(), "%d %d %o %llu %d %d %llu %u", &key, &segment.id, &mode, &size,
                  &segment.creator, &segment.last, &attached, &uid) != 8)
    return std::nullopt;  // the line of titles
  segment.key = static_cast<uint32_t>(key);
  segment.size = size;
  segment.attached = attached;
  segment.dying = (mode & kMarkedForRemoval) != 0;
  segment.access = {uid, mode & 0777};
  return segment;
}

}  // namespace

uint32_t KeyOfName(const std::string &name) {
  return KEL_Hash_crc16(name.data(), static_cast<uint32_t>(name.size())) & 0xFFFF;
}

std::vector<Segment> ListSegments() {
  std::ifstream list(kSystemList);
  if (!list)
    throw Failure(std::string("cannot read ") + kSystemList + ": " + ErrorText(errno));
  std::vector<Segment> segments;
  for (std::string line; std::getline(list, line);)
    if (const auto segment = ParseLine(line))
      segments.push_back(*segment);
  return segments;
}

std::optional<Segment> FindSegment(uint32_t key) {
  for (const Segment &segment : ListSegments())
    if (segment.key == key)
      return segment;
  return std::nullopt;
}

std::string ReadSegment(const Segment &segment, uint64_t length) {
  const void *const data = shmat(segment.id, nullptr, SHM_RDONLY);
  if (data == reinterpret_cast<const void *>(-1))
    throw Failure("cannot attach segment " + std::to_string(segment.id) + ": " +
                  ErrorText(errno));
  std::string bytes(static_cast<const char *>(data),
                    static_cast<size_t>(std::min(segment.size, length)));
  shmdt(data);
  return bytes;
}

void RemoveSegment(const Segment &segment) {
  if (shmctl(segment.id, IPC_RMID, nullptr) != 0)
    throw Failure("cannot remove segment " + std::to_string(segment.id) + ": " +
                  ErrorText(errno));
}

}  // namespace kelctl
