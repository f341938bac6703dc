// Plain and locked lists, and the hash table.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kelcore.hpp"
#include "thread_sleeps.h"

namespace {

struct item {
  int value;
};

std::vector<int> values(const kel::list<item *> &list) {
  std::vector<int> all;
  for (const item &each : list)
    all.push_back(each.value);
  return all;
}

TEST(CppList, KeepsOrder) {
  auto list = kel::list<item *>::create().value_or_throw();
  item items[4] = {{0}, {1}, {2}, {3}};
  EXPECT_TRUE(list.push_back(&items[1]));
  EXPECT_TRUE(list.push_back(&items[2]));
  EXPECT_TRUE(list.push_front(&items[0]));
  EXPECT_TRUE(list.push_back(&items[3]));
  EXPECT_EQ(values(list), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_TRUE(list.move_before(list.begin(), list.nth(2)));
  EXPECT_TRUE(list.move_to_back(list.nth(1)));
  EXPECT_EQ(values(list), (std::vector<int>{2, 1, 3, 0}));
  EXPECT_TRUE(list.move_before(list.begin(), list.begin()));
  const auto odd =
      std::find_if(list.begin(), list.end(), [](const item &each) { return each.value == 1; });
  EXPECT_EQ(list.erase(odd)->value, 3);
  EXPECT_EQ(list.front(), &items[2]);
  EXPECT_EQ(list.back(), &items[0]);
  EXPECT_EQ(list.pop_back(), &items[0]);
  EXPECT_EQ(list.pop_front(), &items[2]);
  EXPECT_EQ(list.size(), 1u);
  EXPECT_EQ(list.nth(1), list.end());
  EXPECT_EQ(list.nth(7), list.end());
  list.clear();
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.pop_front(), nullptr);
}

TEST(CppLockedList, GivesEachItemOnce) {
  constexpr int kItems = 2000;
  constexpr int kTakers = 4;
  auto list = kel::locked_list<item *>::create().value_or_throw();
  std::vector<item> items(kItems);
  std::vector<std::atomic<int>> taken(kItems);
  for (int i = 0; i < kItems; ++i) {
    items[static_cast<size_t>(i)].value = i;
    ASSERT_TRUE(list.push_back(&items[static_cast<size_t>(i)]));
  }
  std::vector<std::thread> takers;
  for (int t = 0; t < kTakers; ++t)
    takers.emplace_back([&, t] {
      while (const item *got = t % 2 != 0 ? list.pop_front() : list.pop_back())
        ++taken[static_cast<size_t>(got->value)];
    });
  for (std::thread &taker : takers)
    taker.join();
  EXPECT_TRUE(std::all_of(taken.begin(), taken.end(), [](const auto &n) { return n == 1; }));
  EXPECT_TRUE(list.empty());
}

TEST(CppLockedList, TakingWaitsForTheLock) {
  auto list = kel::locked_list<item *>::create().value_or_throw();
  item only = {1};
  ASSERT_TRUE(list.push_back(&only));
  std::atomic<bool> took{false};
  std::atomic<pid_t> id{0};
  std::thread taker;
  list.for_each([&](item &) {
    taker = std::thread([&] {
      id = ThreadId();
      took = list.pop_front() == &only;
    });
    EXPECT_TRUE(AwaitSleep(id));
    EXPECT_FALSE(took);
  });
  taker.join();
  EXPECT_TRUE(took);
}

TEST(CppLockedList, VisitsAndRemovesUnderItsLock) {
  auto list = kel::locked_list<item *>::create().value_or_throw();
  item items[5] = {{0}, {1}, {2}, {3}, {4}};
  for (item &each : items)
    EXPECT_TRUE(list.push_front(&each));
  EXPECT_EQ(list.remove_if([](const item &each) { return each.value % 2 == 0; }), 3u);
  std::vector<int> left;
  list.for_each([&](item &each) {
    left.push_back(each.value);
    EXPECT_NE(KEL_MutexLock(list.native_handle()->lock, 0), 0u) << "the lock is not held";
  });
  EXPECT_EQ(left, (std::vector<int>{3, 1}));
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(KEL_ListGetTail(list.native_handle())->data, &items[1]);
  list.clear();
  EXPECT_EQ(list.pop_front(), nullptr);
  EXPECT_EQ(KEL_ListGetTail(list.native_handle()), nullptr);
}

TEST(CppHashTable, FindsWhatWasInserted) {
  auto table = kel::hash_table<uint16_t>::create(4).value_or_throw();
  EXPECT_TRUE(table.insert("video", 256));
  EXPECT_TRUE(table.insert("audio", 257));
  EXPECT_TRUE(table.insert("video", 1).error() == std::errc::file_exists);
  EXPECT_EQ(table.find("video"), 256);
  EXPECT_EQ(table.find("text"), std::nullopt);
  EXPECT_TRUE(table.assign("video", 300));
  EXPECT_EQ(table.find("video"), 300);
  EXPECT_EQ(table.size(), 2u);
  EXPECT_TRUE(table.erase("audio"));
  EXPECT_FALSE(table.erase("audio"));
  EXPECT_FALSE(table.insert(nullptr, 1));
  table.clear();
  EXPECT_EQ(table.size(), 0u);
}

TEST(CppHashTable, TakesAsManyAsItsCapacityOrSaysNo) {
  auto table = kel::hash_table<double>::create(100).value_or_throw();
  for (int i = 0; i < 100; ++i)
    EXPECT_TRUE(table.insert(("key " + std::to_string(i)).c_str(), i / 2.0)) << i;
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(table.find(("key " + std::to_string(i)).c_str()), i / 2.0) << i;
  auto small = kel::hash_table<int>::create(8).value_or_throw();
  int stored = 0;
  while (stored < 20 && small.insert(std::to_string(stored).c_str(), stored))
    ++stored;
  EXPECT_EQ(stored, 8);
}

TEST(CppHashTable, NeverStoresWhatNoLookupFinds) {
  // Keys of one home slot in the 64 slots that 32 entries take: ten are in reach.
  auto table = kel::hash_table<int>::create(32).value_or_throw();
  std::vector<std::string> keys;
  for (int i = 0; keys.size() < 12; ++i)
    if (std::string key = "k" + std::to_string(i); KEL_Hashmap_string(key.c_str(), 64) == 5)
      keys.push_back(std::move(key));
  for (size_t i = 0; i < keys.size(); ++i) {
    const kel::status inserted = table.insert(keys[i].c_str(), 1);
    EXPECT_EQ(inserted.ok(), i < 10) << i;
    EXPECT_EQ(table.find(keys[i].c_str()).has_value(), i < 10) << i;
  }
}

TEST(CppChecksum, MatchesTheCCalls) {
  const char text[] = "123456789";
  const kel::bytes data(reinterpret_cast<const uint8_t *>(text), 9);
  EXPECT_EQ(kel::crc32(data), 0xCBF43926u);
  EXPECT_EQ(kel::crc16(data), KEL_Hash_crc16(text, 9));
  EXPECT_EQ(kel::crc32({}), 0u);
}

}  // namespace
