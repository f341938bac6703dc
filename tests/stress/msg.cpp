// Message channels with many senders that meet at the limit.

#include <kelcore_msg.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "stress.h"

namespace {

constexpr uint32_t kEnd = 0xE0D;  // the word that sends a receiver home
constexpr int32_t kFull = -16, kRefused = -22, kTimedOut = -110;

struct Message {
  KEL_MSG_DESC head;
  uint32_t sender, serial;
  uint8_t payload[64];
  std::atomic<int> received{0};
};

uint64_t KeyOf(uint32_t sender, uint32_t serial) {
  return uint64_t{sender} << 32 | serial;
}

class Round {
 public:
  explicit Round(stress::Random &random)
      : maxmsg_(random.OneIn(3) ? 1 : random.Between(1, 20)),
        senders_(random.Between(1, 8)),
        receivers_(random.Between(1, 4)),
        messages_each_(random.Between(1, 1000)),
        channel_(KEL_MsgCreate(0, maxmsg_, sizeof(Message::payload))) {
    for (uint32_t i = 0; i < senders_; ++i)
      messages_.push_back(std::make_unique<Message[]>(messages_each_));
  }
  ~Round() { KEL_MsgDestroy(channel_); }
  Round(const Round &) = delete;
  Round &operator=(const Round &) = delete;

  void Run() {
    std::vector<stress::Random> randoms(senders_ + receivers_);
    std::vector<std::thread> senders, receivers;
    for (uint32_t i = 0; i < receivers_; ++i)
      receivers.emplace_back([&, i] { Receive(randoms[senders_ + i]); });
    for (uint32_t i = 0; i < senders_; ++i)
      senders.emplace_back([&, i] { Send(i, randoms[i]); });
    for (std::thread &thread : senders)
      thread.join();
    KEL_MSG_DESC end = {kEnd, 0, nullptr};
    for (uint32_t i = 0; i < receivers_; ++i)
      SendSurely(&end);
    for (std::thread &thread : receivers)
      thread.join();
    Check();
  }

 private:
  void SendSurely(KEL_MSG_DESC *message) {
    for (;;) {
      const int32_t result = KEL_MsgSend(channel_, message);
      if (result == 0)
        break;
      // Of two that race for the last place the queue refuses the second.
      stress::Expect(result == kFull || result == kRefused, "a send gives %d", result);
      refused_.fetch_add(1, std::memory_order_relaxed);
      std::this_thread::yield();
    }
    accepted_.fetch_add(1);
  }

  void Send(uint32_t self, stress::Random &random) {
    for (uint32_t i = 0; i < messages_each_; ++i) {
      Message &message = messages_[self][i];
      message.sender = self;
      message.serial = i;
      const uint32_t size = random.Below(sizeof message.payload + 1);
      message.head = {i, size, size != 0 ? message.payload : nullptr};
      stress::Fill(message.payload, size, KeyOf(self, i));
      SendSurely(&message.head);
      stress::Going();
      // A receiver that has taken one has not counted it yet, perhaps.
      const uint64_t accepted = accepted_, received = received_;
      stress::Expect(accepted <= received + maxmsg_ + receivers_, "%llu pending of %u",
                     static_cast<unsigned long long>(accepted - received), maxmsg_);
    }
  }

  void Receive(stress::Random &random) {
    constexpr uint32_t kTimeouts[] = {0, 1, 3, 1000, KEL_WAIT_FOREVER};
    std::vector<uint32_t> next(senders_);
    for (;;) {
      KEL_MSG_DESC *got = nullptr;
      const uint32_t timeout = random.Pick(kTimeouts);
      const int32_t result = KEL_MsgReceive(channel_, &got, timeout);
      if (result == -1 && timeout == 0) {
        std::this_thread::yield();
        continue;
      }
      if (result == kTimedOut && timeout != KEL_WAIT_FOREVER)
        continue;
      woken_.fetch_add(1);
      if (result == 0 && got == nullptr)
        continue;
      stress::Expect(result == KEL_MSG_RECEIVED && got != nullptr, "a receive gives %d, %p",
                     result, static_cast<void *>(got));
      if (got == nullptr)
        return;
      received_.fetch_add(1);
      if (got->word == kEnd && got->size == 0 && !IsOurs(got))
        return;
      stress::Going();
      auto *message = reinterpret_cast<Message *>(got);
      message->received.fetch_add(1, std::memory_order_relaxed);
      stress::Expect(got->word == message->serial && message->serial >= next[message->sender] &&
                         stress::Holds(message->payload, got->size,
                                       KeyOf(message->sender, message->serial)),
                     "message %u of sender %u comes out of order or torn", message->serial,
                     message->sender);
      next[message->sender] = message->serial + 1;
    }
  }
  bool IsOurs(const KEL_MSG_DESC *got) const {
    const auto address = reinterpret_cast<uintptr_t>(got);
    for (const auto &block : messages_) {
      const auto begin = reinterpret_cast<uintptr_t>(block.get());
      if (address >= begin && address < begin + sizeof(Message) * messages_each_)
        return true;
    }
    return false;
  }

  void Check() {
    for (uint32_t s = 0; s < senders_; ++s)
      for (uint32_t i = 0; i < messages_each_; ++i)
        stress::Expect(messages_[s][i].received == 1, "message %u of sender %u comes %d times",
                       i, s, messages_[s][i].received.load());
    // One wake-up for every message, and those that it starts with.
    KEL_MSG_DESC *got = nullptr;
    int32_t result;
    while ((result = KEL_MsgReceive(channel_, &got, 0)) == 0 && got == nullptr)
      ++woken_;
    stress::Expect(result == -1, "a receive gives %d in the end", result);
    stress::Expect(woken_ == maxmsg_ + accepted_, "%llu wake-ups for %u and %llu messages",
                   static_cast<unsigned long long>(woken_), maxmsg_,
                   static_cast<unsigned long long>(accepted_));
    FillUp();
    stress::Count("messages", accepted_);
    stress::Count("wake-ups", woken_);
    stress::Count("refused", refused_);
  }
  void FillUp() {
    std::vector<KEL_MSG_DESC> all(maxmsg_ + 1);
    for (uint32_t i = 0; i < maxmsg_; ++i)
      stress::Expect(KEL_MsgSend(channel_, &all[i]) == 0, "room for %u of %u", i, maxmsg_);
    stress::Expect(KEL_MsgSend(channel_, &all[maxmsg_]) == kFull, "room for more than %u",
                   maxmsg_);
    for (uint32_t i = 0; i < maxmsg_; ++i) {
      KEL_MSG_DESC *got = nullptr;
      stress::Expect(KEL_MsgReceive(channel_, &got, 0) == KEL_MSG_RECEIVED && got == &all[i],
                     "message %u of %u is another one", i, maxmsg_);
    }
  }

  const uint32_t maxmsg_, senders_, receivers_, messages_each_;
  KEL_MSG *channel_;
  std::vector<std::unique_ptr<Message[]>> messages_;
  std::atomic<uint64_t> accepted_{0}, received_{0}, woken_{0}, refused_{0};
};

void Rounds() {
  stress::Random random;
  do {
    Round(random).Run();
    stress::Count("rounds", 1);
  } while (stress::Going());
}

}  // namespace

int main() {
  return stress::Main("msg", "received = sent, in order, none twice", {{"limit", Rounds}});
}
