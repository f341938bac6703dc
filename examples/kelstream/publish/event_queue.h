// The queue on which a publisher tells events, from either side.
#pragma once

#include <kelcore_ipc.h>

#include <cstdint>
#include <memory>
#include <string>

#include "shared_totals.h"

namespace kelstream {

class EventQueue {
 public:
  // Opened, or made.
  explicit EventQueue(const std::string &name);

  bool ok() const { return ipc_ != nullptr; }

  // Waits a little for room. The text is cut when it is long.
  bool Send(Event event, const std::string &text);
  // The next event, waiting at most so many milliseconds (not 0).
  bool Receive(Event &event, std::string &text, uint32_t timeout);

 private:
  struct Close {
    void operator()(KEL_IPC *ipc) const;
  };
  // A message as the library carries it: header and payload in one.
  struct Record {
    KEL_IPC_MSG_HEADER header;
    char text[kEventTextSize];
  };
  std::unique_ptr<KEL_IPC, Close> ipc_;
};

}  // namespace kelstream
