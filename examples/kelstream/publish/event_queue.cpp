// The queue on which a publisher tells events.

#include "event_queue.h"

#include <kelcore_mem.h>

#include <algorithm>

namespace kelstream {

EventQueue::EventQueue(const std::string &name)
    : ipc_(KEL_IPCOpen(name.c_str(), kEventsHeld, kEventTextSize, 0)) {}

void EventQueue::Close::operator()(KEL_IPC *ipc) const {
  // Closing leaves the message buffer to us.
  void *const buffer = KEL_IPCGetMsg(ipc, nullptr);
  KEL_IPCClose(ipc);
  KEL_Free(buffer, 0);
}

bool EventQueue::Send(Event event, const std::string &text) {
  constexpr uint32_t kTimeoutMs = 100;
  Record record{};
  const size_t size = std::min<size_t>(text.size(), kEventTextSize);
  record.header.word = static_cast<uint32_t>(event);
  record.header.length = static_cast<int32_t>(size);
  std::copy_n(text.data(), size, record.text);
  return KEL_IPCSend(ipc_.get(), &record, 0, kTimeoutMs) == 0;
}

bool EventQueue::Receive(Event &event, std::string &text, uint32_t timeout) {
  Record record{};
  if (KEL_IPCReceive(ipc_.get(), &record, timeout) != 0)
    return false;
  event = static_cast<Event>(record.header.word);
  text.assign(record.text, static_cast<size_t>(std::clamp<int32_t>(record.header.length, 0,
                                                                   int32_t{kEventTextSize})));
  return true;
}

}  // namespace kelstream
