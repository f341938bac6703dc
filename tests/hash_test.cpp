// Checksums against slow and obvious ones; the hash table step by step.

#include "kelcore_hash.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelhash", "kelcore_hash", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

// ---- Checksums, bit by bit ----

uint32_t SlowCrc32(const uint8_t *data, size_t length) {
  if (length == 0)
    return 0;
  uint32_t r = 0xFFFFFFFF;
  for (size_t i = 0; i < length; ++i) {
    r ^= data[i];
    for (int bit = 0; bit < 8; ++bit)
      r = (r & 1) != 0 ? (r >> 1) ^ 0xEDB88320u : r >> 1;
  }
  return ~r;
}

uint32_t SlowCrc16(const uint8_t *data, size_t length) {
  uint32_t r = 0;
  for (size_t i = 0; i < length; ++i) {
    uint32_t entry = ((r ^ data[i]) & 0xFF) << 8;
    for (int bit = 0; bit < 8; ++bit)
      entry = ((entry << 1) ^ ((entry & 0x8000) != 0 ? 0x1021u : 0u)) & 0xFFFF;
    r = entry ^ (r >> 8);
  }
  return r;
}

TEST(HashCrc, KnownResults) {
  EXPECT_EQ(KEL_Hash_crc32("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(KEL_Hash_crc16("123456789", 9), 0xB955u);
  EXPECT_EQ(KEL_Hash_crc32("123456789", 0), 0u);
  EXPECT_EQ(KEL_Hash_crc16("123456789", 0), 0u);
  EXPECT_EQ(KEL_Hash_crc32(nullptr, 0), 0u);
  EXPECT_EQ(KEL_Hash_crc16(nullptr, 0), 0u);
}

TEST(HashCrc, AgreeWithTheSlowOnesForAllShortLengthsAndAlignments) {
  std::mt19937 random(9);
  std::vector<uint8_t> bytes(400);
  for (uint8_t &byte : bytes)
    byte = static_cast<uint8_t>(random());
  for (size_t offset = 0; offset < 9; ++offset)
    for (uint32_t length = 0; length < 300; ++length) {
      ASSERT_EQ(KEL_Hash_crc32(bytes.data() + offset, length),
                SlowCrc32(bytes.data() + offset, length));
      ASSERT_EQ(KEL_Hash_crc16(bytes.data() + offset, length),
                SlowCrc16(bytes.data() + offset, length));
    }
}

TEST(HashCrc, LongRuns) {
  std::vector<uint8_t> bytes(300'000);
  std::mt19937 random(11);
  for (uint8_t &byte : bytes)
    byte = static_cast<uint8_t>(random());
  for (const uint32_t length : {64u, 1000u, 65'536u, 300'000u}) {
    EXPECT_EQ(KEL_Hash_crc32(bytes.data(), length), SlowCrc32(bytes.data(), length));
    EXPECT_EQ(KEL_Hash_crc16(bytes.data(), length), SlowCrc16(bytes.data(), length));
  }
}

// ---- The string hash ----

uint32_t SlowHash(const std::string &key) {
  uint32_t h = SlowCrc32(reinterpret_cast<const uint8_t *>(key.data()), key.size());
  h = h * 4097;
  h = h ^ (h >> 22);
  h = h * 17;
  h = h ^ (h >> 9);
  h = h * 1025;
  h = h ^ (h >> 2);
  h = h * 129;
  h = h ^ (h >> 12);
  return (h >> 3) * 0x9E3779B1u;
}

TEST(HashString, FollowsItsSteps) {
  for (const std::string key :
       {"a", "video", "audio", "a longer key of many characters", "\xFF"}) {
    EXPECT_EQ(KEL_Hashmap_string(key.c_str(), 0), SlowHash(key)) << key;
    for (uint32_t size : {1u, 4u, 255u, 256u, 1000u})
      EXPECT_EQ(KEL_Hashmap_string(key.c_str(), size), SlowHash(key) % size);
  }
  EXPECT_EQ(KEL_Hashmap_string("", 256), 0u);
  EXPECT_EQ(KEL_Hashmap_string(nullptr, 256), 0u);
  EXPECT_EQ(KEL_Hashmap_string(nullptr, 0), 0u);
}

// ---- The table ----

struct Slot {
  char *key;
  uint64_t value;
  uint8_t used;
};
static_assert(sizeof(Slot) == 24);

Slot *SlotsOf(const KEL_HASHMAP *map) {
  Slot *slots;
  memcpy(&slots, reinterpret_cast<const char *>(map) + 8, sizeof slots);
  return slots;
}
uint32_t SizeOf(const KEL_HASHMAP *map) {
  uint32_t size;
  memcpy(&size, map, sizeof size);
  return size;
}

// Keys whose home in a table of `size` slots is `home`.
std::vector<std::string> KeysAt(uint32_t size, uint32_t home, size_t count) {
  std::vector<std::string> keys;
  for (int i = 0; keys.size() < count; ++i) {
    const std::string key = "key" + std::to_string(i);
    if (KEL_Hashmap_string(key.c_str(), size) == home)
      keys.push_back(key);
  }
  return keys;
}

// Collects the copies of keys that growth leaves behind, and frees them.
class KeyCopies {
 public:
  KeyCopies() {
    faults::strdup.Replace([this](const char *text) {
      char *copy = faults::strdup.Real(text);
      copies_.push_back(copy);
      return copy;
    });
  }
  // Frees those that the table does not hold any more.
  void FreeAbandoned(const KEL_HASHMAP *map) {
    for (char *copy : copies_) {
      bool held = false;
      for (uint32_t i = 0; i < SizeOf(map); ++i)
        held = held || SlotsOf(map)[i].key == copy;
      if (!held)
        free(copy);
    }
    copies_.clear();
  }

 private:
  std::vector<char *> copies_;
};

TEST(HashmapCreate, TakesARecordAndZeroedSlots) {
  AllocHooks hooks;
  TraceCapture trace;
  KEL_HASHMAP *map = KEL_Hashmap_Create(10, 1);
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 24u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_hash");
  EXPECT_EQ(hooks.adds[1].size, 24u) << "of one slot";
  EXPECT_EQ(SizeOf(map), 10u);
  EXPECT_EQ(KEL_Hashmap_size(map), 0u);
  EXPECT_EQ(reinterpret_cast<const uint8_t *>(map)[16], 1) << "expandable";
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(SlotsOf(map)[i].key, nullptr);
    EXPECT_EQ(SlotsOf(map)[i].used, 0);
  }
  EXPECT_EQ(trace.Take(), Lines{});
  KEL_Hashmap_Destroy(map);
}

TEST(HashmapCreate, Size0Means256) {
  KEL_HASHMAP *map = KEL_Hashmap_Create(0, 0);
  EXPECT_EQ(SizeOf(map), 256u);
  KEL_Hashmap_Destroy(map);
}

TEST(HashmapCreate, FailuresAreTracedAndLeaveNothing) {
  AllocHooks hooks;
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_Hashmap_Create(4, 0), nullptr);
  faults::malloc.Reset();
  faults::calloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_Hashmap_Create(4, 0), nullptr);
  faults::ResetAll();
  const TraceLine error = Error("KEL_Hashmap_Create", "Out of memory\n");
  EXPECT_EQ(trace.Take(), (Lines{error, error}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(HashmapDestroy, OfNullDoesNothing) {
  KEL_Hashmap_Destroy(nullptr);
  KEL_Hashmap_DestroyFull(nullptr, nullptr);
}

TEST(HashmapDestroy, LeavesTheKeysBehind) {
  AllocHooks hooks;
  KEL_HASHMAP *map = KEL_Hashmap_Create(4, 0);
  const int32_t slot = KEL_Hashmap_Hash(map, "kept", 1);
  char *key = SlotsOf(map)[slot].key;
  KEL_Hashmap_Destroy(map);
  EXPECT_EQ(hooks.removes.size(), 0u) << "released with the C library's free";
  EXPECT_STREQ(key, "kept");
  free(key);
}

std::vector<uint64_t> released;

TEST(HashmapDestroyFull, ReleasesKeysAndCallsForEverySlot) {
  AllocHooks hooks;
  KEL_HASHMAP *map = KEL_Hashmap_Create(6, 0);
  const int32_t a = KEL_Hashmap_Hash(map, "a", 11);
  const int32_t b = KEL_Hashmap_Hash(map, nullptr, 22);
  released.clear();
  KEL_Hashmap_DestroyFull(map, [](uint64_t value) { released.push_back(value); });
  std::vector<uint64_t> expected(6);
  expected[static_cast<size_t>(a)] = 11;
  expected[static_cast<size_t>(b)] = 22;
  EXPECT_EQ(released, expected);
  EXPECT_EQ(hooks.removes.size(), 1u) << "the one key";
}

class Hashmap : public testing::Test {
 protected:
  ~Hashmap() override {
    faults::ResetAll();
    KEL_Hashmap_DestroyFull(map, nullptr);
  }
  uint64_t Get(const char *key, int32_t expected_result = 0) {
    uint64_t value = 77;
    EXPECT_EQ(KEL_Hashmap_Get(map, key, &value), expected_result) << key;
    return value;
  }
  KEL_HASHMAP *map = KEL_Hashmap_Create(64, 0);
};

TEST_F(Hashmap, FindsWhatWasInserted) {
  EXPECT_EQ(KEL_Hashmap_Hash(map, "a", 1), static_cast<int32_t>(KEL_Hashmap_string("a", 64)));
  EXPECT_GE(KEL_Hashmap_Hash(map, "b", 0xFFFFFFFFFFFFFFFF), 0);
  EXPECT_EQ(KEL_Hashmap_size(map), 2u);
  EXPECT_EQ(Get("a"), 1u);
  EXPECT_EQ(Get("b"), 0xFFFFFFFFFFFFFFFFu);
}

TEST_F(Hashmap, KeysAreCopied) {
  char key[] = "abc";
  KEL_Hashmap_Hash(map, key, 5);
  key[0] = 'x';
  EXPECT_EQ(Get("abc"), 5u);
}

TEST_F(Hashmap, AMissingKeyGivesMinus1And0) {
  TraceCapture trace;
  EXPECT_EQ(Get("nobody", -1), 0u);
  EXPECT_EQ(KEL_Hashmap_Del(map, "nobody"), -1);
  EXPECT_EQ(trace.Take(), (Lines{Line("INFO ", "KEL_Hashmap_Get", "can not find key(nobody)\n"),
                                 Error("KEL_Hashmap_Del", "can not find key(nobody)\n")}));
}

TEST_F(Hashmap, EqualKeysMakeTwoEntries) {
  const int32_t first = KEL_Hashmap_Hash(map, "same", 1);
  EXPECT_EQ(KEL_Hashmap_Hash(map, "same", 2), (first + 1) % 64);
  EXPECT_EQ(KEL_Hashmap_size(map), 2u);
  EXPECT_EQ(Get("same"), 1u);
  EXPECT_EQ(KEL_Hashmap_Del(map, "same"), 0);
  EXPECT_EQ(Get("same"), 2u);
}

TEST_F(Hashmap, ANullKeyIsStoredAndNeverFound) {
  EXPECT_EQ(KEL_Hashmap_Hash(map, nullptr, 3), 0);
  EXPECT_EQ(SlotsOf(map)[0].used, 1);
  EXPECT_EQ(SlotsOf(map)[0].key, nullptr);
  TraceCapture trace;
  EXPECT_EQ(Get(nullptr, -1), 0u);
  EXPECT_EQ(Get("", -1), 0u);
  EXPECT_EQ(KEL_Hashmap_Del(map, nullptr), -1);
  EXPECT_EQ(trace.Messages()[0], "can not find key((null))\n");
}

TEST_F(Hashmap, AKeyThatCannotBeCopiedIsStoredAsNull) {
  faults::strdup.Fail(nullptr, ENOMEM);
  const int32_t slot = KEL_Hashmap_Hash(map, "lost", 4);
  EXPECT_GE(slot, 0);
  EXPECT_EQ(SlotsOf(map)[slot].key, nullptr);
  EXPECT_EQ(KEL_Hashmap_size(map), 1u);
}

TEST_F(Hashmap, ProbesOneSlotAtATimeAroundTheEnd) {
  const std::vector<std::string> keys = KeysAt(64, 62, 4);
  const int32_t expected[] = {62, 63, 0, 1};
  for (size_t i = 0; i < 4; ++i)
    EXPECT_EQ(KEL_Hashmap_Hash(map, keys[i].c_str(), i), expected[i]);
  for (size_t i = 0; i < 4; ++i)
    EXPECT_EQ(Get(keys[i].c_str()), i);
}

TEST_F(Hashmap, AHoleDoesNotEndASearch) {
  const std::vector<std::string> keys = KeysAt(64, 5, 4);
  for (size_t i = 0; i < 4; ++i)
    KEL_Hashmap_Hash(map, keys[i].c_str(), i);
  EXPECT_EQ(KEL_Hashmap_Del(map, keys[1].c_str()), 0);
  EXPECT_EQ(SlotsOf(map)[6].key, nullptr);
  EXPECT_EQ(SlotsOf(map)[6].value, 0u);
  EXPECT_EQ(SlotsOf(map)[6].used, 0);
  EXPECT_EQ(KEL_Hashmap_size(map), 3u);
  EXPECT_EQ(Get(keys[2].c_str()), 2u);
  EXPECT_EQ(Get(keys[3].c_str()), 3u);
  EXPECT_EQ(KEL_Hashmap_Hash(map, keys[1].c_str(), 9), 6) << "the hole is used again";
}

TEST_F(Hashmap, AnEntryInTheEleventhSlotIsStoredButNeverFound) {
  const std::vector<std::string> keys = KeysAt(64, 20, 12);
  for (size_t i = 0; i < 11; ++i)
    EXPECT_EQ(KEL_Hashmap_Hash(map, keys[i].c_str(), i), static_cast<int32_t>(20 + i));
  EXPECT_EQ(Get(keys[9].c_str()), 9u);
  EXPECT_EQ(Get(keys[10].c_str(), -1), 0u);
  EXPECT_EQ(KEL_Hashmap_Del(map, keys[10].c_str()), -1);
  TraceCapture trace;
  EXPECT_EQ(KEL_Hashmap_Hash(map, keys[11].c_str(), 0), -1) << "and a twelfth finds no place";
  EXPECT_EQ(trace.Take(),
            (Lines{Error("kelhashmap_resize", "resizing is not allowed! (expandable FALSE)\n"),
                   Error("KEL_Hashmap_Hash", "rehash failed.\n")}));
}

TEST_F(Hashmap, ResetEmptiesEverySlotAndKeepsTheSize) {
  AllocHooks hooks;
  KEL_Hashmap_Hash(map, "a", 1);
  KEL_Hashmap_Hash(map, "b", 2);
  KEL_Hashmap_Hash(map, nullptr, 3);
  TraceCapture trace;
  EXPECT_EQ(KEL_Hashmap_reset(map), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("INFO ", "KEL_Hashmap_reset", "remain size(0) tblsize(64)\n")}));
  EXPECT_EQ(hooks.removes.size(), 2u);
  EXPECT_EQ(KEL_Hashmap_size(map), 0u);
  EXPECT_EQ(SizeOf(map), 64u);
  Get("a", -1);
}

TEST_F(Hashmap, DumpPrintsEverySlot) {
  KEL_HASHMAP *small = KEL_Hashmap_Create(4, 0);
  const int32_t at = KEL_Hashmap_Hash(small, "key", 1);
  std::string expected = "index\t used \t key \n";
  for (int i = 0; i < 4; ++i)
    expected += std::to_string(i) + " \t " + (i == at ? "1 \t key \n" : "0 \t (null) \n");
  EXPECT_EQ(StdoutOf([&] { KEL_Hashmap_dump(small); }), expected);
  KEL_Hashmap_DestroyFull(small, nullptr);
}

// ---- Growing ----

TEST(HashmapGet, TellsKeysOfOneHashApart) {
  std::map<uint32_t, std::string> seen;
  std::string one, other;
  for (int i = 0; one.empty(); ++i) {
    const std::string key = "same" + std::to_string(i);
    const auto [known, fresh] = seen.emplace(KEL_Hashmap_string(key.c_str(), 0), key);
    if (!fresh) {
      one = known->second;
      other = key;
    }
  }
  KEL_HASHMAP *map = KEL_Hashmap_Create(16, 0);
  uint64_t value = 0;
  ASSERT_GE(KEL_Hashmap_Hash(map, one.c_str(), 1), 0);
  EXPECT_EQ(KEL_Hashmap_Get(map, other.c_str(), &value), -1);
  ASSERT_GE(KEL_Hashmap_Hash(map, other.c_str(), 2), 0);
  EXPECT_EQ(KEL_Hashmap_Get(map, one.c_str(), &value), 0);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(KEL_Hashmap_Get(map, other.c_str(), &value), 0);
  EXPECT_EQ(value, 2u);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

// Null keys, the empty key and free slots all have the hash 0.
TEST(HashmapGet, TellsTheEmptyKeyFromNullAndFromNothing) {
  KEL_HASHMAP *map = KEL_Hashmap_Create(16, 0);
  uint64_t value = 0;
  EXPECT_EQ(KEL_Hashmap_Get(map, "", &value), -1);
  EXPECT_EQ(KEL_Hashmap_Hash(map, nullptr, 1), 0);
  EXPECT_EQ(KEL_Hashmap_Get(map, "", &value), -1);
  EXPECT_EQ(KEL_Hashmap_Hash(map, "", 2), 1);
  EXPECT_EQ(KEL_Hashmap_Get(map, "", &value), 0);
  EXPECT_EQ(value, 2u);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

TEST(HashmapGrow, BeyondWhatSlotsCanCountFailsLikeMissingMemory) {
  // The array is never looked at: the record is made to look half full.
  faults::calloc.Replace([](size_t, size_t) { return faults::calloc.Real(1, 24); });
  KEL_HASHMAP *map = KEL_Hashmap_Create(0x80000000, 1);
  faults::calloc.Reset();
  const uint32_t count = 0x40000000;
  memcpy(reinterpret_cast<char *>(map) + 4, &count, sizeof count);
  TraceCapture trace;
  errno = 0;
  EXPECT_EQ(KEL_Hashmap_Hash(map, "key", 1), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(trace.Take(), (Lines{Error("kelhashmap_resize", "Out of memory\n"),
                                 Error("KEL_Hashmap_Hash", "rehash failed.\n")}));
  EXPECT_EQ(SizeOf(map), 0x80000000u);
  KEL_Hashmap_Destroy(map);
}

TEST(HashmapGrow, WithoutLeaveTakesHalfItsSize) {
  KEL_HASHMAP *map = KEL_Hashmap_Create(4, 0);
  EXPECT_GE(KEL_Hashmap_Hash(map, "a", 1), 0);
  EXPECT_GE(KEL_Hashmap_Hash(map, "b", 2), 0);
  TraceCapture trace;
  EXPECT_EQ(KEL_Hashmap_Hash(map, "c", 3), -1);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("kelhashmap_resize", "resizing is not allowed! (expandable FALSE)\n"),
                   Error("KEL_Hashmap_Hash", "rehash failed.\n")}));
  EXPECT_EQ(KEL_Hashmap_size(map), 2u);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

TEST(HashmapGrow, DoublesBeforeTheInsertThatFindsItHalfFull) {
  KeyCopies copies;
  AllocHooks hooks;
  KEL_HASHMAP *map = KEL_Hashmap_Create(4, 2);
  KEL_Hashmap_Hash(map, "a", 1);
  KEL_Hashmap_Hash(map, "b", 2);
  EXPECT_EQ(SizeOf(map), 4u);
  const int32_t slot = KEL_Hashmap_Hash(map, "c", 3);
  EXPECT_GE(slot, 0);
  EXPECT_LT(slot, 8);
  EXPECT_EQ(SizeOf(map), 8u);
  EXPECT_EQ(KEL_Hashmap_size(map), 3u);
  EXPECT_EQ(hooks.removes.size(), 1u) << "the old array, not the old keys";
  uint64_t value = 0;
  for (const auto &[key, expected] :
       std::map<std::string, uint64_t>{{"a", 1}, {"b", 2}, {"c", 3}}) {
    EXPECT_EQ(KEL_Hashmap_Get(map, key.c_str(), &value), 0);
    EXPECT_EQ(value, expected);
  }
  copies.FreeAbandoned(map);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

TEST(HashmapGrow, WithoutMemoryChangesNothing) {
  KEL_HASHMAP *map = KEL_Hashmap_Create(4, 1);
  KEL_Hashmap_Hash(map, "a", 1);
  KEL_Hashmap_Hash(map, "b", 2);
  TraceCapture trace;
  faults::calloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_Hashmap_Hash(map, "c", 3), -1);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(), (Lines{Error("kelhashmap_resize", "Out of memory\n"),
                                 Error("KEL_Hashmap_Hash", "rehash failed.\n")}));
  EXPECT_EQ(SizeOf(map), 4u);
  EXPECT_EQ(KEL_Hashmap_size(map), 2u);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

TEST(HashmapGrow, ARunWithoutPlaceGrowsOnce) {
  KeyCopies copies;
  KEL_HASHMAP *map = KEL_Hashmap_Create(64, 1);
  // Eleven that collide in 64 slots.
  const std::vector<std::string> keys = KeysAt(64, 20, 12);
  for (size_t i = 0; i < 12; ++i)
    EXPECT_GE(KEL_Hashmap_Hash(map, keys[i].c_str(), i), 0);
  EXPECT_EQ(SizeOf(map), 128u);
  EXPECT_EQ(KEL_Hashmap_size(map), 12u);
  copies.FreeAbandoned(map);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

TEST(HashmapGrow, ARunThatGrowthDoesNotSpreadFails) {
  KeyCopies copies;
  KEL_HASHMAP *map = KEL_Hashmap_Create(64, 1);
  // Homes that stay together in 128 slots as well.
  std::vector<std::string> keys;
  for (int i = 0; keys.size() < 12; ++i) {
    const std::string key = "k" + std::to_string(i);
    if (KEL_Hashmap_string(key.c_str(), 128) == 20)
      keys.push_back(key);
  }
  for (size_t i = 0; i < 11; ++i)
    EXPECT_GE(KEL_Hashmap_Hash(map, keys[i].c_str(), i), 0);
  TraceCapture trace;
  EXPECT_EQ(KEL_Hashmap_Hash(map, keys[11].c_str(), 11), -1);
  EXPECT_EQ(trace.Take(), (Lines{Error("KEL_Hashmap_Hash", "already rehash done. failed.\n")}));
  EXPECT_EQ(SizeOf(map), 128u);
  copies.FreeAbandoned(map);
  KEL_Hashmap_DestroyFull(map, nullptr);
}

// The table once more, step by step and without any thought of speed.
struct LiteralTable {
  struct Entry {
    bool used = false;
    std::string key;
    bool null_key = false;
    uint64_t value = 0;
  };
  std::vector<Entry> entries;
  uint32_t count = 0;
  std::vector<std::string> told;
  int half_way = 0, nested = 0, depth = 0;

  explicit LiteralTable(uint32_t size) : entries(size) {}
  uint32_t size() const { return static_cast<uint32_t>(entries.size()); }

  int Grow() {
    std::vector<Entry> old(entries.size() * 2);
    old.swap(entries);
    count = 0;
    nested += depth > 0;
    ++depth;
    for (const Entry &entry : old)
      if (entry.used && Insert(entry.null_key ? nullptr : entry.key.c_str(), entry.value) < 0) {
        --depth;
        ++half_way;
        return -1;
      }
    --depth;
    return 0;
  }
  int32_t Insert(const char *key, uint64_t value) {
    if (count >= size() / 2 && Grow() != 0) {
      told.push_back("rehash failed.\n");
      return -1;
    }
    for (bool again = false;; again = true) {
      const uint32_t home = KEL_Hashmap_string(key, size());
      for (uint32_t probe = 0; probe < 11; ++probe) {
        const uint32_t at = (home + probe) % size();
        if (!entries[at].used) {
          entries[at] = {true, key != nullptr ? key : "", key == nullptr, value};
          ++count;
          return static_cast<int32_t>(at);
        }
      }
      if (again) {
        told.push_back("already rehash done. failed.\n");
        return -1;
      }
      if (Grow() != 0) {
        told.push_back("rehash failed.\n");
        return -1;
      }
    }
  }
};

// Inserts that collide in 64, 128 and 256 slots, null keys among them, so that
// growths are set off by each step, fail half-way and grow within a growth.
class HashmapGrowth {
 public:
  ~HashmapGrowth() {
    copies_.FreeAbandoned(map_);
    for (const auto &add : hooks_.adds) {
      const auto same = [&](const auto &remove) { return remove.block == add.block; };
      if (add.block != map_ && add.block != SlotsOf(map_) &&
          std::none_of(hooks_.removes.begin(), hooks_.removes.end(), same))
        free(add.block);
    }
    KEL_Hashmap_DestroyFull(map_, nullptr);
  }
  void Insert(const char *key) {
    const uint64_t value = next_++;
    model.told.clear();
    EXPECT_EQ(KEL_Hashmap_Hash(map_, key, value), model.Insert(key, value));
    EXPECT_EQ(trace_.Messages(), model.told);
    ASSERT_EQ(SizeOf(map_), model.size());
    EXPECT_EQ(KEL_Hashmap_size(map_), model.count);
    for (uint32_t i = 0; i < model.size(); ++i) {
      const Slot &slot = SlotsOf(map_)[i];
      const LiteralTable::Entry &entry = model.entries[i];
      ASSERT_EQ(slot.used != 0, entry.used);
      if (!entry.used)
        continue;
      ASSERT_EQ(slot.value, entry.value);
      ASSERT_EQ(slot.key == nullptr, entry.null_key);
      if (!entry.null_key) {
        ASSERT_EQ(slot.key, entry.key);
      }
    }
  }
  LiteralTable model{64};

 private:
  TraceCapture trace_{"kelhash:1"};
  AllocHooks hooks_;
  KeyCopies copies_;
  KEL_HASHMAP *map_ = KEL_Hashmap_Create(64, 1);
  uint64_t next_ = 1;
};

TEST(HashmapGrow, FollowsItsStepsAlsoWhereItFailsHalfWayOrNests) {
  // By home in 64 slots; alike in 128 and 256 as well, or only there.
  std::vector<std::vector<std::string>> groups;
  for (const uint32_t home : {60u, 63u, 188u, 5u})
    groups.push_back(KeysAt(256, home, 16));
  groups.push_back(KeysAt(64, 60, 16));
  groups.push_back(KeysAt(128, 63, 16));
  int half_way = 0, nested = 0;
  for (uint32_t seed = 0; seed < 300 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    HashmapGrowth table;
    for (int i = 0; i < 50 && table.model.size() <= 1024; ++i) {
      const auto &group = groups[random() % (1 + seed % groups.size())];
      const bool null_key = random() % 16 == 0;
      ASSERT_NO_FATAL_FAILURE(
          table.Insert(null_key ? nullptr : group[random() % group.size()].c_str()));
    }
    half_way += table.model.half_way;
    nested += table.model.nested;
  }
  EXPECT_GT(half_way, 0);
  EXPECT_GT(nested, 0);
}

// The growth of a half full table leaves the one of a full run still to come.
TEST(HashmapGrow, OnceForHalfItsSizeAndOnceMoreForAFullRun) {
  HashmapGrowth table;
  std::vector<std::string> together = KeysAt(256, 20, 6);
  for (const std::string &key : KeysAt(256, 148, 6))
    together.push_back(key);
  for (size_t i = 0; i < 11; ++i)
    table.Insert(together[i].c_str());
  for (uint32_t home = 40; home < 61; ++home)
    table.Insert(KeysAt(128, home, 1)[0].c_str());
  ASSERT_EQ(table.model.size(), 64u);
  ASSERT_EQ(table.model.count, 32u);
  table.Insert(together[11].c_str());
  EXPECT_EQ(table.model.size(), 256u);
  EXPECT_EQ(table.model.count, 33u);
}

TEST(HashmapModel, ManyInsertsLookupsAndDeletionsAgree) {
  std::mt19937 random(11);
  std::map<std::string, uint64_t> model;
  KEL_HASHMAP *map = KEL_Hashmap_Create(2048, 0);  // sparse: no run reaches ten
  for (int round = 0; round < 20'000; ++round) {
    const std::string key = "m" + std::to_string(random() % 400);
    uint64_t value = 0;
    const auto known = model.find(key);
    if (known == model.end()) {
      ASSERT_EQ(KEL_Hashmap_Get(map, key.c_str(), &value), -1);
      ASSERT_GE(KEL_Hashmap_Hash(map, key.c_str(), random()), 0);
      ASSERT_EQ(KEL_Hashmap_Get(map, key.c_str(), &model[key]), 0);
    } else {
      ASSERT_EQ(KEL_Hashmap_Get(map, key.c_str(), &value), 0);
      ASSERT_EQ(value, known->second);
      ASSERT_EQ(KEL_Hashmap_Del(map, key.c_str()), 0);
      model.erase(known);
    }
    ASSERT_EQ(KEL_Hashmap_size(map), model.size());
  }
  KEL_Hashmap_DestroyFull(map, nullptr);
}

}  // namespace
