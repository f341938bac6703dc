// The parts that frames pass through on their way from file to report.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <thread>

#include "crc_join.h"
#include "kelcore_hash.h"
#include "kelcore_smem.h"
#include "media_pool.h"
#include "sender.h"
#include "staging_ring.h"
#include "stream_table.h"
#include "thread_sleeps.h"

namespace kelstream_test {
namespace {

using kelstream::Consumer;
using kelstream::CrcSum;
using kelstream::JoinCrc;
using kelstream::MediaPool;
using kelstream::Message;
using kelstream::StagingRing;
using kelstream::StreamTable;

std::vector<uint8_t> Noise(size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(size);
  for (uint8_t &byte : bytes)
    byte = static_cast<uint8_t>(random());
  return bytes;
}

uint32_t Crc(const uint8_t *data, size_t size) {
  return KEL_Hash_crc32(data, static_cast<uint32_t>(size));
}

TEST(CrcJoinTest, PartsGiveTheSumOfTheWhole) {
  const auto data = Noise(70000, 1);
  const uint32_t whole = Crc(data.data(), data.size());
  for (const size_t cut :
       {size_t{0}, size_t{1}, size_t{2}, size_t{255}, size_t{65536}, data.size()})
    EXPECT_EQ(JoinCrc(Crc(data.data(), cut), Crc(data.data() + cut, data.size() - cut),
                      data.size() - cut),
              whole)
        << cut;
  CrcSum sum;
  for (size_t at = 0, step = 1; at < data.size(); at += step, step = step * 3 % 997 + 1) {
    step = std::min(step, data.size() - at);
    sum.Append(Crc(data.data() + at, step), step);
    sum.Append(0, 0);
  }
  EXPECT_EQ(sum.value, whole);
  EXPECT_EQ(sum.length, data.size());
}

TEST(CrcJoinTest, LengthsOfMoreThan32Bits) {
  // 2^33 zeros, doubled from one.
  const uint8_t zero = 0;
  uint32_t doubled = Crc(&zero, 1);
  for (uint64_t length = 1; length < uint64_t{1} << 33; length *= 2)
    doubled = JoinCrc(doubled, doubled, length);
  uint32_t half = Crc(&zero, 1);
  for (uint64_t length = 1; length < uint64_t{1} << 32; length *= 2)
    half = JoinCrc(half, half, length);
  EXPECT_EQ(JoinCrc(half, half, uint64_t{1} << 32), doubled);
  EXPECT_NE(JoinCrc(half, half, uint64_t{1} << 31), doubled);
}

struct Record {
  uint64_t value = 7;
  uint64_t filling[5] = {};
};

TEST(StreamTableTest, ThousandsOfStreams) {
  KEL_SMalloc_Init();
  {
    StreamTable<Record> table("test");
    for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(table.Find(5), nullptr);
      for (uint32_t i = 0; i < 8192; ++i) {
        Record &record = table.Add(i);
        EXPECT_EQ(record.value, 7u);
        record.value = i;
      }
      for (uint32_t i = 0; i < 8192; ++i) {
        const Record *const record = table.Find(i);
        ASSERT_NE(record, nullptr) << i;
        ASSERT_EQ(record->value, i);
        ASSERT_EQ(table.records()[i], record) << "in order";
      }
      EXPECT_EQ(table.Find(8192), nullptr);
      table.Clear();
      EXPECT_TRUE(table.records().empty());
    }
  }
  EXPECT_EQ(KEL_SMemIsReg(sizeof(Record)), 0);
  KEL_SMalloc_Deinit();
}

// The library's table stores an entry in the eleventh slot from home, and does
// not look there.
TEST(StreamTableTest, EntriesThatShareAHomeAreAllFound) {
  constexpr uint32_t kSlots = 64;
  StreamTable<Record> table("test");
  std::vector<uint32_t> numbers;
  for (uint32_t i = 0; numbers.size() < 20; ++i)
    if (KEL_Hashmap_string(("stream " + std::to_string(i)).c_str(), kSlots) == 5)
      numbers.push_back(i);
  for (const uint32_t number : numbers) {
    table.Add(number).value = number;
    for (const uint32_t known : numbers) {
      if (known > number)
        break;
      ASSERT_NE(table.Find(known), nullptr) << known;
      ASSERT_EQ(table.Find(known)->value, known);
    }
  }
}

TEST(StagingRingTest, TheWriterWaitsForRoom) {
  StagingRing ring;
  std::atomic<int> written{0};
  std::atomic<pid_t> id{0};
  std::thread writer([&] {
    id = ThreadId();
    while (ring.BeginWrite() != nullptr) {
      ring.EndWrite(StagingRing::kPiece);
      ++written;
    }
  });
  constexpr int kPieces = 8;
  while (written < kPieces)
    std::this_thread::yield();
  EXPECT_TRUE(AwaitSleep(id));
  EXPECT_EQ(written, kPieces);
  ring.Abandon();
  writer.join();
}

TEST(StagingRingTest, EveryByteArrivesInOrder) {
  StagingRing ring;
  ASSERT_TRUE(ring.ok());
  for (int round = 0; round < 3; ++round) {
    ring.Reset();
    const auto data = Noise(3000000, 2);
    std::thread writer([&] {
      std::mt19937 random(3);
      for (size_t at = 0; at < data.size();) {
        uint8_t *const room = ring.BeginWrite();
        const size_t count =
            std::min<size_t>(1 + random() % StagingRing::kPiece, data.size() - at);
        std::memcpy(room, data.data() + at, count);
        ring.EndWrite(static_cast<uint32_t>(count));
        at += count;
      }
      ring.BeginWrite();
      ring.EndWrite(0);
    });
    std::mt19937 random(4);
    size_t at = 0;
    bool good = true;
    for (;;) {
      const size_t wanted = 1 + random() % StagingRing::kMaxWanted;
      const auto view = ring.Read(wanted);
      EXPECT_TRUE(view.whole || view.size >= wanted);
      good = good && std::memcmp(view.data, data.data() + at, view.size) == 0;
      // Not always all of it, so that the rest has to move.
      const size_t count = view.whole ? view.size : 1 + random() % view.size;
      ring.Release(count);
      at += count;
      if (view.whole)
        break;
    }
    writer.join();
    EXPECT_TRUE(good);
    EXPECT_EQ(at, data.size());
  }
}

TEST(StagingRingTest, AnAbandonedWriterComesBack) {
  StagingRing ring;
  std::thread writer([&] {
    while (ring.BeginWrite() != nullptr)
      ring.EndWrite(StagingRing::kPiece);
  });
  ring.Read(StagingRing::kMaxWanted);
  ring.Abandon();
  writer.join();
  ring.Reset();
  ASSERT_NE(ring.BeginWrite(), nullptr) << "and can begin anew";
  ring.EndWrite(0);
  EXPECT_TRUE(ring.Read(1).whole);
}

// Both readers get every message and frame, in order, at their own pace.
TEST(MediaPoolTest, TwoReaders) {
  MediaPool pool;
  ASSERT_TRUE(pool.ok());
  constexpr uint32_t kMessages = 5000;
  const auto data = Noise(MediaPool::kMaxFrame + 256, 5);
  const auto size_of = [](uint32_t i) {
    return i % 7 == 0 ? 0 : i % 5 == 0 ? MediaPool::kMaxFrame : i * 37 % 3000;
  };
  const auto read = [&](Consumer consumer, size_t held_at_once) {
    std::vector<const Message *> held;
    uint32_t bad = 0;
    for (uint32_t i = 0; i < kMessages;) {
      if (held.size() == held_at_once || pool.Drained(consumer)) {
        for (const Message *message : held)
          pool.Release(consumer, *message);
        held.clear();
      }
      const Message *const message = pool.Receive(consumer);
      if (message == nullptr)
        continue;
      const uint32_t size = size_of(i);
      if (message->stream != i || message->size != size ||
          (size > 0 && std::memcmp(message->data, data.data() + i % 256, size) != 0))
        ++bad;
      held.push_back(message);
      ++i;
    }
    for (const Message *message : held)
      pool.Release(consumer, *message);
    return bad;
  };
  for (int round = 0; round < 2; ++round) {
    uint32_t bad[2] = {1, 1};
    std::thread first([&] { bad[0] = read(Consumer::kDigest, 90); });
    std::thread second([&] { bad[1] = read(Consumer::kStatistics, 1); });
    for (uint32_t i = 0; i < kMessages; ++i) {
      Message &message = pool.Begin();
      message.stream = i;
      pool.Send(message, data.data() + i % 256, size_of(i));
    }
    pool.Flush();
    first.join();
    second.join();
    EXPECT_EQ(bad[0], 0u);
    EXPECT_EQ(bad[1], 0u);
  }
}

// Streams that come in turns keep their units apart; long units are cut.
TEST(SenderTest, FragmentsOfSeveralStreams) {
  MediaPool pool;
  kelstream::Sender sender(pool);
  const auto data = Noise(MediaPool::kMaxFrame * 2 + 100, 6);
  constexpr size_t kStep = 1000;
  for (size_t at = 0; at < data.size(); at += kStep)
    for (const uint32_t stream : {9u, 4u, 6u})
      sender.OnBytes(stream, data.data() + at, std::min(kStep, data.size() - at));
  kelstream::Unit unit;
  unit.size = data.size();
  for (const uint32_t stream : {6u, 9u, 4u})
    sender.OnUnitEnd(stream, unit);
  // Small ones share a frame, but not with one that could not be read.
  for (int i = 0; i < 5; ++i) {
    sender.OnBytes(4, data.data(), 10);
    unit.size = 10;
    unit.readable = i != 2;
    sender.OnUnitEnd(4, unit);
  }
  sender.OnBytes(4, data.data(), 3);  // of one that never ends
  for (int i = 0; i < 25; ++i)
    sender.OnRemark(i == 24 ? kelstream::Severity::kDamage : kelstream::Severity::kNote, 1,
                    std::string(300, 'x'));
  sender.End({.size = 5});

  std::map<uint32_t, std::vector<uint8_t>> bytes;
  std::map<uint32_t, std::string> flags;
  int remarks = 0;
  for (bool more = true; more;) {
    const Message *const message = pool.Receive(Consumer::kStatistics);
    if (message == nullptr)
      continue;
    if (message->word == kelstream::kUnits) {
      const auto *const begin = static_cast<const uint8_t *>(message->data);
      bytes[message->stream].insert(bytes[message->stream].end(), begin, begin + message->size);
      flags[message->stream] += std::to_string(message->unit_count) + ":" +
                                std::to_string(message->closed) + "/" +
                                std::to_string(message->size) + " ";
    } else if (message->word == kelstream::kRemark) {
      EXPECT_EQ(std::string(message->text), std::string(199, 'x'));
      ++remarks;
    } else {
      more = false;
      EXPECT_EQ(message->word, uint32_t{kelstream::kEndOfFile});
      EXPECT_EQ(message->end.size, 5u);
      EXPECT_TRUE(message->end.damaged);
      EXPECT_EQ(message->end.remarks_left_out, 5u);
    }
    pool.Release(Consumer::kStatistics, *message);
  }
  for (const uint32_t stream : {6u, 9u}) {
    EXPECT_EQ(bytes[stream], data) << stream;
    EXPECT_EQ(flags[stream], "0:0/16384 0:0/16384 1:100/100 ");
  }
  EXPECT_EQ(flags[4], "0:0/16384 0:0/16384 3:120/120 1:10/10 2:20/20 ");
  EXPECT_EQ(remarks, 20);
}

}  // namespace
}  // namespace kelstream_test
