// The way from the reader to the consumer: a message channel for full buffers,
// and a queue on which empty ones come back. The buffers are all there are, so
// the channel can never be full and memory is fixed however large a file is.
//
// Access units are small and come by the hundred thousand. Waking the other
// thread for each would cost several times the work that it does with it, so
// both sides hand on batches: messages are sent one by one, and announced by
// one event for many.
#pragma once

#include <kelcore_event.h>
#include <kelcore_msg.h>
#include <kelcore_queue.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "probe.h"
#include "stream.h"

namespace kelstream {

// The low half of a message's word says what it is.
enum MessageKind : uint32_t {
  kUnitBytes = 1,  // bytes of a unit, a fragment of it when it is large
  kFormat = 2,     // a StreamFormat
  kRemark = 3,     // text about the file
  kEndOfFile = 4,  // the last message of a file: an EndOfFile
  kKindMask = 0xFFFF,
};

// Flags in its high half.
enum MessageFlag : uint32_t {
  kFirstFragment = 0x10000,
  kLastFragment = 0x20000,
};

struct EndOfFile {
  Container container = Container::kUnknown;
  int read_error = 0;  // errno of a read that failed
  uint64_t size = 0;   // bytes read
  bool damaged = false;
  uint64_t remarks_left_out = 0;  // made and not sent
};

// The descriptor that travels is the first part of its buffer, so that who
// receives it has it all.
struct Message : KEL_MSG_DESC {
  static constexpr uint32_t kCapacity = 32 * 1024;

  uint32_t Kind() const { return word & kKindMask; }

  template <typename T>
  void Put(const T &value) {
    static_assert(sizeof(T) <= kCapacity);
    std::memcpy(bytes, &value, sizeof value);
    data = bytes;
    size = sizeof value;
  }
  template <typename T>
  T Get() const {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }

  Unit unit;                            // with the last fragment of a unit
  Severity severity = Severity::kNote;  // of a remark
  uint64_t offset = 0;                  // of what a remark is about
  uint8_t bytes[kCapacity];
};

class Exchange {
 public:
  Exchange();
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

  // False when the system had not the means; nothing else may be called then.
  bool ok() const { return ok_; }

  // The producer's side. An empty message, waiting until there is one.
  Message *TakeEmpty();
  // It may be a while until the consumer looks, unless Flush is called.
  void Send(Message *message);
  void Flush();

  // The consumer's side. The oldest message, waiting until there is one, to be
  // given back when it has been used.
  Message *Receive();
  void GiveBack(Message *message);

 private:
  static constexpr uint32_t kMessages = 32;
  // While the producer fills one batch the other is free or on its way back:
  // it never waits for messages that only its own announcement would free.
  static constexpr uint32_t kBatch = kMessages / 2;

  void ReturnUsed();

  struct Destroy {
    void operator()(KEL_MSG *channel) const { KEL_MsgDestroy(channel); }
    void operator()(KEL_QUEUE *queue) const { KEL_QueueDestroy(queue); }
    void operator()(KEL_SEMA *event) const { KEL_EventDestroy(event); }
  };
  std::vector<std::unique_ptr<Message>> messages_;
  std::unique_ptr<KEL_MSG, Destroy> channel_;
  std::unique_ptr<KEL_QUEUE, Destroy> empty_;
  std::unique_ptr<KEL_SEMA, Destroy> announced_;  // to be looked at: waiting_
  bool ok_ = false;

  std::atomic<uint32_t> waiting_ = 0;  // messages announced and not yet seen
  uint32_t sent_ = 0;                  // the producer's: not yet announced
  uint32_t ready_ = 0;                 // the consumer's: seen, not yet received
  std::vector<Message *> used_;        // the consumer's: not yet given back
};

}  // namespace kelstream
