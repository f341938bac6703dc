// What a publishing kelstream shares with others: a segment of shared memory
// with the running totals, and the name of the queue on which it tells events.
//
// The segment is found by the name that it is published under. Its key is a
// checksum of 16 bits, which different names may share: a name has several
// keys, and the segment says whose it is.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "process.h"

namespace kelstream {

struct Totals {
  uint64_t files = 0;  // finished
  uint64_t streams = 0;
  uint64_t frames = 0;
  uint64_t bytes = 0;
  uint64_t offset = 0;  // in the file that is being read
  uint64_t size = 0;    // of that file, 0 when unknown
};

enum class ShareState : uint32_t {
  kNew,       // being set up
  kLive,      // the publisher is at work
  kFinished,  // it has told everything
};

struct SharedTotals {
  static constexpr size_t kNameSize = 65;

  std::atomic<ShareState> state;
  char name[kNameSize];
  std::atomic<int64_t> publisher;
  std::atomic<uint64_t> publisher_start;
  std::atomic<int64_t> watcher;
  std::atomic<uint64_t> watcher_start;
  std::atomic<uint32_t> events_sent;
  std::atomic<uint32_t> events_taken;
  std::atomic<uint32_t> events_dropped;  // of those taken: by the publisher, for room
  std::atomic<uint64_t> files, streams, frames, bytes, offset, size;

  ProcessId Publisher() const { return {publisher.load(), publisher_start.load()}; }
  ProcessId Watcher() const { return {watcher.load(), watcher_start.load()}; }
  void Store(const Totals &totals);
  Totals Load() const;
};

// Events, as the first word of their messages.
enum class Event : uint32_t { kStreamFound = 1, kFileFinished = 2 };
inline constexpr uint32_t kEventTextSize = 240;
inline constexpr int32_t kEventsHeld = 8;

// Empty, or what is wrong with a name to publish under.
std::string NameProblem(const std::string &name);

// The queue of one publisher. No two runs share one, so that clearing up behind
// a killed one cannot hit the next.
std::string QueueName(const std::string &name, int64_t publisher);

// The segment published under this name, attached, or null.
SharedTotals *FindTotals(const std::string &name);
// A new segment, in state kNew; null when there is none to be had, or another
// one of this name was made meanwhile (`again`).
SharedTotals *CreateTotals(const std::string &name, bool &again);
// Lets go of a segment without removing it.
void DetachTotals(SharedTotals *totals);
// Clears up behind a publisher that was killed, and lets go. Nothing happens
// when somebody else did, for what is removed bears that publisher's number.
void RemoveStale(SharedTotals *totals);

}  // namespace kelstream
