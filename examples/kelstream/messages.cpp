// The way from the reader to the consumer.

#include "messages.h"

#include "trace.h"

namespace kelstream {

Exchange::Exchange()
    : channel_(KEL_MsgCreate(0, kMessages, Message::kCapacity)),
      empty_(KEL_QueueCreate("kelstream", kMessages)),
      announced_(KEL_EventCreate(nullptr)) {
  if (channel_ == nullptr || empty_ == nullptr || announced_ == nullptr)
    return;
  used_.reserve(kMessages);
  for (uint32_t i = 0; i < kMessages; ++i) {
    messages_.push_back(std::make_unique<Message>());
    GiveBack(messages_.back().get());
  }
  ReturnUsed();
  // A new channel wakes its receiver as often as it has places, without a
  // message; that is taken here, once.
  for (uint32_t i = 0; i < kMessages; ++i) {
    KEL_MSG_DESC *none = nullptr;
    if (KEL_MsgReceive(channel_.get(), &none, 0) != 0)
      return;
  }
  ok_ = true;
}

Message *Exchange::TakeEmpty() {
  // Nothing comes back when a signal interrupts the wait.
  void *message = nullptr;
  while (message == nullptr)
    message = KEL_QueuePop(empty_.get(), nullptr, KEL_WAIT_FOREVER);
  return static_cast<Message *>(message);
}

void Exchange::Send(Message *message) {
  const int32_t result = KEL_MsgSend(channel_.get(), message);
  if (result != 0) {  // there are no more messages than places
    KELSTREAM_TRACE(KEL_LEVEL_ERROR, "message lost, result %d\n", result);
    return;
  }
  if (++sent_ >= kBatch)
    Flush();
}

void Exchange::Flush() {
  if (sent_ == 0)
    return;
  waiting_ += sent_;
  sent_ = 0;
  KEL_EventSend(announced_.get());
}

Message *Exchange::Receive() {
  while (ready_ == 0) {
    // Never sleeps on messages that the other side may need.
    ReturnUsed();
    KEL_EventWait(announced_.get(), KEL_WAIT_FOREVER);
    ready_ = waiting_.exchange(0);
  }
  KEL_MSG_DESC *message = nullptr;
  while (KEL_MsgReceive(channel_.get(), &message, KEL_WAIT_FOREVER) != KEL_MSG_RECEIVED) {
  }
  --ready_;
  return static_cast<Message *>(message);
}

void Exchange::GiveBack(Message *message) {
  used_.push_back(message);
}

void Exchange::ReturnUsed() {
  for (Message *message : used_)
    if (KEL_QueuePush(empty_.get(), message, 0) != 0)
      KELSTREAM_TRACE(KEL_LEVEL_ERROR, "message not given back\n");
  used_.clear();
}

}  // namespace kelstream
