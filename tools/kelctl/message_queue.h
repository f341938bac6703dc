// POSIX message queues.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "access.h"

namespace kelctl {

struct MessageQueue {
  std::string name;
  std::string problem;  // why it cannot be read; the rest is unknown then
  uint64_t depth = 0;   // messages that it has room for
  uint64_t size = 0;    // bytes that a message may have
  uint64_t pending = 0;
  std::optional<uint64_t> pending_bytes;
  pid_t notified = 0;  // the process that waits for a message's arrival; 0: none
  Access access;
};

// Where the system shows its queues as files; none when nobody mounted them.
std::optional<std::string> QueueDirectory();

// Sorted. Throws Failure when the directory cannot be read.
std::vector<std::string> ListQueues(const std::string &directory);

// None when there is no queue of that name. Throws Failure for a name that can
// have none.
std::optional<MessageQueue> FindQueue(const std::string &name);

// Takes the messages that are pending now, not those that senders who wait for
// room add meanwhile: that might never end. Throws Failure. Returns how many.
uint64_t DrainQueue(const std::string &name);

// Throws Failure.
void RemoveQueue(const std::string &name);

}  // namespace kelctl
