// Queues and message channels.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "kelcore.hpp"

namespace {

using namespace std::chrono_literals;

TEST(CppQueue, HandsPointersOverInOrder) {
  auto q = kel::queue<int *>::create("q", 4).value_or_throw();
  int items[3] = {};
  EXPECT_TRUE(q.push(&items[0], 10));
  EXPECT_TRUE(q.push(&items[1], 11));
  EXPECT_TRUE(q.push_front(&items[2], 12));
  EXPECT_EQ(q.size(), 3u);
  const auto first = q.pop_entry(kel::no_wait);
  EXPECT_EQ(first.data, &items[2]);
  EXPECT_EQ(first.number, 12);
  int32_t number = 0;
  EXPECT_EQ(q.pop(number, 1s), &items[0]);
  EXPECT_EQ(number, 10);
  EXPECT_EQ(q.pop_back(1s), &items[1]);
  EXPECT_FALSE(q.pop_entry(kel::no_wait));
  EXPECT_STREQ(q.name(), "q");
}

TEST(CppQueue, AFullOneRefuses) {
  auto q = kel::queue<const int *>::create(nullptr, 1).value_or_throw();
  const int item = 0;
  EXPECT_TRUE(q.push(&item));
  EXPECT_TRUE(q.full());
  EXPECT_FALSE(q.push(&item));
  q.clear();
  EXPECT_TRUE(q.empty());
}

TEST(CppQueue, PeekingAnEmptyOneLeavesItUsable) {
  auto q = kel::queue<int *>::create("q", 0).value_or_throw();
  EXPECT_FALSE(q.peek());
  int item = 0;
  EXPECT_TRUE(q.push(&item, 3));
  EXPECT_EQ(q.peek().number, 3);
  EXPECT_EQ(q.pop(kel::no_wait), &item);
}

TEST(CppQueue, PopForOutlastsAWakeUpOfLongAgo) {
  auto q = kel::queue<int *>::create("q", 4).value_or_throw();
  q.wake();
  EXPECT_EQ(q.pop(10s), nullptr) << "the C call comes back at once";
  q.wake();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(q.pop_for(20ms));
  // The wait goes by the wall clock.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 18ms);
}

TEST(CppQueue, PopForTakesWhatAStaleReleaseWouldHide) {
  auto q = kel::queue<int *>::create("q", 0).value_or_throw();
  int item = 0;
  q.wake();
  EXPECT_TRUE(q.push(&item, 1));
  EXPECT_EQ(q.pop_for(10s).data, &item);
}

TEST(CppQueue, WakesASleeper) {
  auto q = kel::queue<int *>::create("q", 4).value_or_throw();
  std::thread sleeper([&q] { EXPECT_EQ(q.pop(kel::infinite), nullptr); });
  q.wake();
  sleeper.join();
}

struct number : kel::message {
  explicit number(int v) : kel::message(1), value(v) {}
  int value;
};

TEST(CppChannel, EveryReceiveBringsAMessageFromTheFirstOn) {
  auto c = kel::channel<number *>::create(4).value_or_throw();
  EXPECT_TRUE(c.receive(kel::no_wait).error() == std::errc::timed_out);
  EXPECT_TRUE(c.receive(5ms).error() == std::errc::timed_out);
  number one(1);
  number two(2);
  EXPECT_TRUE(c.send(&one));
  EXPECT_TRUE(c.send(&two));
  EXPECT_EQ((*c.receive(kel::no_wait))->value, 1);
  const auto got = c.receive(kel::infinite);
  ASSERT_TRUE(got);
  EXPECT_EQ(*got, &two);
  EXPECT_EQ((*got)->word, 1u);
  EXPECT_TRUE(c.receive(kel::no_wait).outcome().timed_out());
}

TEST(CppChannel, SaysWhyItRefuses) {
  auto c = kel::channel<kel::message *>::create(1, 4).value_or_throw();
  uint8_t payload[5] = {};
  kel::message m(9);
  m.carry(payload);
  EXPECT_TRUE(c.send(&m).error() == std::errc::invalid_argument);
  m.carry(kel::writable_bytes(payload).first(4));
  EXPECT_TRUE(c.send(&m));
  EXPECT_TRUE(c.send(&m).error() == std::errc::device_or_resource_busy);
  EXPECT_EQ((*c.receive(1s))->payload().size(), 4u);
  EXPECT_TRUE(c.send(nullptr).error() == std::errc::invalid_argument);
  EXPECT_TRUE(kel::channel<kel::message *>::create(0).error() == std::errc::invalid_argument);
}

TEST(CppChannel, ManySendersOneReceiver) {
  auto c = kel::channel<number *>::create(64).value_or_throw();
  std::vector<number> numbers;
  for (int i = 0; i < 64; ++i)
    numbers.emplace_back(i);
  std::vector<std::thread> senders;
  for (int s = 0; s < 4; ++s)
    senders.emplace_back([&, s] {
      for (int i = s; i < 64; i += 4)
        EXPECT_TRUE(c.send(&numbers[static_cast<size_t>(i)]));
    });
  int sum = 0;
  for (int i = 0; i < 64; ++i)
    sum += (*c.receive(kel::infinite))->value;
  EXPECT_EQ(sum, 64 * 63 / 2);
  for (std::thread &sender : senders)
    sender.join();
}

}  // namespace
