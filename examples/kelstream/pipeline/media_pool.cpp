// The way from the parser to those who read what it found.

#include "media_pool.h"

#include <cstring>

#include "trace.h"

namespace kelstream {

namespace {

KEL_BUF *CreateFrames(uint32_t number, uint32_t room, uint32_t align, KEL_BUF *existing) {
  KEL_BUF_PARAM parameters{};
  // Two more than can be in use: one for the tail that a frame did not fit in.
  parameters.bufsize = (number + 2) * room;
  parameters.minsize = room;
  parameters.number = number;
  parameters.align = align;
  return KELBuf_Create(&parameters, existing);
}

}  // namespace

MediaPool::MediaPool()
    : messages_(kMessages),
      // A full pool would read as an empty one.
      writer_(CreateFrames(kMessages + 1, kRoom, kAlign, nullptr)),
      room_(KEL_EventCreate(nullptr)) {
  ok_ = writer_ != nullptr && room_ != nullptr;
  for (Side &side : sides_)
    ok_ = ok_ && Open(side);
}

bool MediaPool::Open(Side &side) {
  side.frames.reset(CreateFrames(kMessages + 1, kRoom, kAlign, writer_.get()));
  side.channel.reset(KEL_MsgCreate(0, kMessages, kMaxFrame));
  side.announced.reset(KEL_EventCreate(nullptr));
  if (side.frames == nullptr || side.channel == nullptr || side.announced == nullptr)
    return false;
  // A new channel wakes its receiver as often as it has places, without a
  // message; that is taken here, once.
  for (uint32_t i = 0; i < kMessages; ++i) {
    KEL_MSG_DESC *none = nullptr;
    if (KEL_MsgReceive(side.channel.get(), &none, 0) != 0)
      return false;
  }
  return true;
}

bool MediaPool::HasRoom() const {
  for (const Side &side : sides_)
    if (sent_ - side.returned.load(std::memory_order_acquire) >= kMessages)
      return false;
  return true;
}

Message &MediaPool::Begin() {
  while (!HasRoom()) {
    Flush();
    KEL_EventWait(room_.get(), KEL_WAIT_FOREVER);
  }
  Message &message = messages_[sent_ % kMessages];
  message.unit_count = 0;
  message.closed = 0;
  return message;
}

void MediaPool::Send(Message &message, const uint8_t *data, size_t size) {
  message.data = nullptr;
  message.size = 0;
  if (size > 0) {
    KEL_BUF_DESC frame{};
    if (KELBuf_GetWBuf(writer_.get(), &frame) == 0) {
      std::memcpy(frame.data, data, size);
      frame.size = static_cast<uint32_t>(size);
      frame.time_stamp = sent_;
      frame.value = message.stream;
      KELBuf_FillWBuf(writer_.get(), &frame);
      // The pool counts the writer's handle, too.
      KELBuf_DelRBuf(writer_.get(), &frame);
      message.data = frame.data;
      message.size = frame.size;
    } else {
      KELSTREAM_TRACE(KEL_LEVEL_ERROR, "no room for a frame of %u bytes\n",
                      static_cast<unsigned>(size));
    }
  }
  for (Side &side : sides_) {
    const int32_t result = KEL_MsgSend(side.channel.get(), &message);
    if (result != 0)  // there are no more messages than places
      KELSTREAM_TRACE(KEL_LEVEL_ERROR, "message lost, result %d\n", result);
  }
  ++sent_;
  if (++unannounced_ >= kBatch)
    Flush();
}

void MediaPool::Flush() {
  if (unannounced_ == 0)
    return;
  for (Side &side : sides_) {
    side.waiting += unannounced_;
    KEL_EventSend(side.announced.get());
  }
  unannounced_ = 0;
}

const Message *MediaPool::Receive(Consumer consumer) {
  Side &side = Of(consumer);
  if (side.ready == 0) {
    // Never sleeps on messages that the producer may need.
    ReturnReleased(side);
    KEL_EventWait(side.announced.get(), KEL_WAIT_FOREVER);
    side.ready = side.waiting.exchange(0);
    if (side.ready == 0)
      return nullptr;
  }
  KEL_MSG_DESC *message = nullptr;
  while (KEL_MsgReceive(side.channel.get(), &message, KEL_WAIT_FOREVER) != KEL_MSG_RECEIVED) {
  }
  --side.ready;
  return static_cast<Message *>(message);
}

bool MediaPool::Drained(Consumer consumer) const {
  return sides_[static_cast<size_t>(consumer)].ready == 0;
}

void MediaPool::Release(Consumer consumer, const Message &message) {
  Side &side = Of(consumer);
  if (message.size > 0) {
    KEL_BUF_DESC frame{};
    if (KELBuf_GetRBuf(side.frames.get(), &frame) != 0 || frame.data != message.data)
      KELSTREAM_TRACE(KEL_LEVEL_ERROR, "frames and messages do not go together\n");
    KELBuf_DelRBuf(side.frames.get(), &frame);
  }
  if (++side.unreturned >= kBatch)
    ReturnReleased(side);
}

void MediaPool::ReturnReleased(Side &side) {
  if (side.unreturned == 0)
    return;
  side.returned.fetch_add(side.unreturned, std::memory_order_release);
  side.unreturned = 0;
  KEL_EventSend(room_.get());
}

}  // namespace kelstream
