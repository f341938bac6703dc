// Pool allocator, region heap and media pool.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <list>
#include <map>
#include <memory_resource>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kelcore.hpp"
#include "thread_sleeps.h"

namespace {

TEST(CppSizeClass, OwnsItsSize) {
  const auto pools = kel::pool_allocator::start().value_or_throw();
  {
    auto packets = kel::size_class::create(64, "packet").value_or_throw();
    EXPECT_EQ(KEL_SMemIsReg(64), 1);
    EXPECT_TRUE(kel::size_class::create(0, "none").error() == std::errc::invalid_argument);
    EXPECT_TRUE(kel::size_class::create(62, "again").error() == std::errc::file_exists);
    auto *block = static_cast<char *>(packets.allocate());
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[63], 0);
    packets.deallocate(block);
    const kel::size_class moved = std::move(packets);
    EXPECT_FALSE(packets);
    EXPECT_EQ(moved.size(), 64u);
  }
  EXPECT_EQ(KEL_SMemIsReg(64), 0);
}

// Counts what comes by.
class counting_resource final : public std::pmr::memory_resource {
 public:
  int allocations = 0;
  int held = 0;

 private:
  void *do_allocate(size_t size, size_t align) override {
    ++allocations;
    ++held;
    return std::pmr::new_delete_resource()->allocate(size, align);
  }
  void do_deallocate(void *block, size_t size, size_t align) override {
    --held;
    std::pmr::new_delete_resource()->deallocate(block, size, align);
  }
  bool do_is_equal(const memory_resource &other) const noexcept override {
    return this == &other;
  }
};

uint32_t bytes_in_use() {
  uint32_t reserved = 0;
  uint32_t used = 0;
  uint32_t free_bytes = 0;
  KEL_SMemStatus(&reserved, &used, &free_bytes);
  return reserved;
}

TEST(CppPoolResource, TakesRegisteredSizesFromThePoolAndOthersElsewhere) {
  const auto pools = kel::pool_allocator::start().value_or_throw();
  const auto nodes = kel::size_class::create(48, "nodes").value_or_throw();
  counting_resource others;
  kel::pool_resource memory(&others);
  void *registered = memory.allocate(48, 16);
  EXPECT_EQ(others.allocations, 0);
  EXPECT_GT(bytes_in_use(), 0u);
  void *rounded = memory.allocate(46, 2);
  EXPECT_EQ(others.allocations, 0) << "rounded up it is the class's";
  void *other = memory.allocate(64, 8);
  void *strict = memory.allocate(48, 32);
  EXPECT_EQ(others.allocations, 2);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(registered) % 16, 0u);
  memory.deallocate(strict, 48, 32);
  memory.deallocate(other, 64, 8);
  memory.deallocate(rounded, 46, 2);
  memory.deallocate(registered, 48, 16);
  EXPECT_EQ(others.held, 0);
  EXPECT_EQ(bytes_in_use(), 0u);
}

TEST(CppPoolResource, CarriesContainers) {
  const auto pools = kel::pool_allocator::start().value_or_throw();
  const auto nodes = kel::size_class::create(40, "nodes").value_or_throw();
  kel::pool_resource memory(std::pmr::null_memory_resource());
  struct three {
    uint64_t words[3];
  };
  std::pmr::list<three> list(&memory);  // two links and three words: 40 bytes
  for (uint64_t i = 0; i < 10000; ++i)
    list.push_back({{i, 0, 0}});
  EXPECT_EQ(list.back().words[0], 9999u);
}

TEST(CppRegionHeap, HandsOutWhateverItsSize) {
  for (const uint32_t size : {512u, 1000u, 5000u, 70000u, 200000u, 3000000u}) {
    auto heap = kel::region_heap::create(size);
    ASSERT_TRUE(heap) << size << ": " << heap.error().message();
    void *block = heap->allocate(16);
    ASSERT_NE(block, nullptr) << size;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u);
    EXPECT_TRUE(heap->deallocate(block));
  }
  EXPECT_FALSE(kel::region_heap::create(511));
}

TEST(CppRegionHeap, HandsOutAlsoWhenManyPlacesAreTaken) {
  std::vector<kel::region_heap> heaps;
  for (int i = 0; i < 200; ++i) {
    auto heap = kel::region_heap::create(static_cast<uint32_t>(512 + 97 * i));
    ASSERT_TRUE(heap) << i;
    ASSERT_NE(heap->allocate(8), nullptr) << i;
    if (i % 3 != 0)
      heaps.push_back(std::move(*heap));
    if (i % 7 == 0 && !heaps.empty())
      heaps.erase(heaps.begin());
  }
}

TEST(CppRegionHeap, HandsOutAlsoWhenBlocksOfOtherThreadsAreAtHand) {
  // Blocks from a thread's own arena, high above, freed here: malloc gives them next.
  std::vector<void *> theirs(20);
  std::thread([&theirs] {
    for (void *&block : theirs)
      block = std::malloc(40);
  }).join();
  for (void *block : theirs)
    std::free(block);
  auto heap = kel::region_heap::create(512);
  EXPECT_TRUE(heap && heap->allocate(8) != nullptr);
}

TEST(CppRegionHeap, SmallOnesWorkOnOtherThreads) {
  std::thread([] {
    for (const uint32_t size : {512u, 5000u, 70000u}) {
      auto heap = kel::region_heap::create(size);
      EXPECT_TRUE(heap && heap->allocate(8) != nullptr) << size;
    }
  }).join();
}

TEST(CppRegionHeap, ReallocationKeepsContents) {
  auto heap = kel::region_heap::create(10000).value_or_throw();
  void *block = heap.allocate(16);
  void *fence = heap.allocate(16);
  std::memcpy(block, "fifteen letters", 16);
  void *larger = heap.reallocate(block, 16, 64);
  ASSERT_NE(larger, nullptr);
  EXPECT_STREQ(static_cast<char *>(larger), "fifteen letters");
  EXPECT_EQ(heap.reallocate(larger, 64, 1u << 20), nullptr);
  EXPECT_STREQ(static_cast<char *>(larger), "fifteen letters");
  EXPECT_TRUE(heap.deallocate(larger));
  EXPECT_TRUE(heap.deallocate(fence));
}

// Whether round after round a heap of this size has memory for it.
template <class Round>
testing::AssertionResult lasts(uint32_t heap_bytes, int rounds, Round round) {
  auto heap = kel::region_heap::create(heap_bytes).value_or_throw();
  kel::region_resource memory(heap);
  int done = 0;
  try {
    for (auto use = round(memory); done < rounds; ++done)
      use(done);
  } catch (const std::bad_alloc &) {
    return testing::AssertionFailure()
           << "full after " << done << " rounds, " << heap.free_bytes() << " bytes free";
  }
  return testing::AssertionSuccess();
}

TEST(CppRegionHeap, ServesAListThatStaysShortForever) {
  EXPECT_TRUE(lasts(1 << 14, 4000, [](auto &memory) {
    return [list = std::pmr::list<int>(1, 0, &memory)](int) mutable {
      list.insert(list.end(), {1, 2});
      list.erase(std::next(list.begin()));
      list.pop_back();
    };
  }));
}

TEST(CppRegionHeap, ServesVectorsOfStringsForever) {
  EXPECT_TRUE(lasts(1 << 14, 1000, [](auto &memory) {
    return [&memory](int) {
      std::pmr::vector<std::pmr::string> lines(&memory);
      for (int i = 0; i < 5; ++i)
        lines.emplace_back("a line that is too long to live inside the string itself");
    };
  }));
}

TEST(CppRegionHeap, ServesAMapThatChangesForever) {
  EXPECT_TRUE(lasts(1 << 14, 4000, [](auto &memory) {
    return [map = std::pmr::map<int, int>(&memory)](int round) mutable {
      map[round % 10 + 1] = round;
      map[round % 7 + 20] = round;
      map.erase(round % 10 + 1);
      if (round % 3 == 0)
        map.erase(map.begin());
    };
  }));
}

// Blocks at random, each filled with a value of its own that must be there at its end.
class mixed_blocks {
 public:
  mixed_blocks(kel::region_heap &heap, uint32_t most, uint32_t seed)
      : heap_(heap), most_(most), random_(seed) {}
  ~mixed_blocks() {
    while (!live_.empty())
      free_one(live_.size() - 1);
  }

  void run(int steps) {
    for (int i = 0; i < steps && intact_; ++i) {
      if (live_.empty() || random_() % 3 != 0)
        allocate_one();
      else
        free_one(random_() % 3 != 0 ? live_.size() - 1 : random_() % live_.size());
    }
  }
  bool intact() const { return intact_; }

 private:
  struct block {
    uint8_t *data;
    uint32_t size;
    uint8_t value;
  };

  void allocate_one() {
    const uint32_t size = 1 + static_cast<uint32_t>(random_()) % most_;
    if (auto *data = static_cast<uint8_t *>(heap_.allocate(size))) {
      const auto value = static_cast<uint8_t>(random_());
      std::memset(data, value, size);
      live_.push_back({data, size, value});
    } else if (!live_.empty()) {
      free_one(live_.size() - 1);
    }
  }

  void free_one(size_t index) {
    const block gone = live_[index];
    live_.erase(live_.begin() + static_cast<std::ptrdiff_t>(index));
    const std::vector<uint8_t> expected(gone.size, gone.value);
    intact_ = intact_ && std::memcmp(gone.data, expected.data(), gone.size) == 0;
    intact_ = heap_.deallocate(gone.data).ok() && intact_;
  }

  kel::region_heap &heap_;
  uint32_t most_;
  std::minstd_rand random_;
  std::vector<block> live_;
  bool intact_ = true;
};

TEST(CppRegionHeap, NeverHandsBytesOutTwiceAndGetsAllBack) {
  for (const uint32_t size : {4096u, 16384u, 100000u}) {
    for (uint32_t seed = 1; seed <= 10; ++seed) {
      auto heap = kel::region_heap::create(size).value_or_throw();
      // Sizes among which there are many that leave the smallest rest, too.
      for (const uint32_t most : {size / 16, 200u}) {
        mixed_blocks blocks(heap, most, seed);
        blocks.run(300);
        ASSERT_TRUE(blocks.intact()) << size << ' ' << seed << ' ' << most;
      }
      ASSERT_LE(heap.free_bytes(), size);
      void *all = heap.allocate(size - 512);
      ASSERT_NE(all, nullptr) << size << ' ' << seed << ": in one piece";
      ASSERT_TRUE(heap.deallocate(all));
    }
  }
}

TEST(CppRegionHeap, LastsWhenItIsFilledAndEmptiedInAnyOrder) {
  auto heap = kel::region_heap::create(4000).value_or_throw();
  std::minstd_rand random(1);
  size_t most = 0;
  for (int round = 0; round < 300; ++round) {
    std::vector<void *> blocks;
    while (void *block = heap.allocate(9 + static_cast<uint32_t>(round) % 30))
      blocks.push_back(block);
    ASSERT_GT(blocks.size(), 20u) << round;
    std::shuffle(blocks.begin(), blocks.end(), random);
    for (void *block : blocks)
      ASSERT_TRUE(heap.deallocate(block)) << round;
    most = std::max(most, blocks.size());
  }
  EXPECT_GT(most, 40u);
}

TEST(CppRegionHeap, ARefusalOfWhatIsTooLargeLeavesItAlive) {
  auto heap = kel::region_heap::create(1 << 20).value_or_throw();
  void *block = heap.allocate(600000);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(heap.allocate(700000), nullptr);
  EXPECT_TRUE(heap.deallocate(block));
  EXPECT_EQ(heap.allocate(1 << 20), nullptr);
  EXPECT_EQ(heap.allocate(UINT32_MAX), nullptr);
  block = heap.allocate(700000);
  EXPECT_NE(block, nullptr) << "what is free is one piece but for the guard";
  EXPECT_NE(heap.allocate(100), nullptr);
}

TEST(CppRegionHeap, ServesThreadsTogether) {
  auto heap = kel::region_heap::create(1 << 14).value_or_throw();
  std::vector<std::thread> threads;
  std::atomic<int> intact{0};
  for (uint32_t seed = 1; seed <= 3; ++seed)
    threads.emplace_back([&heap, &intact, seed] {
      mixed_blocks blocks(heap, 100, seed);
      blocks.run(2000);
      intact += blocks.intact() ? 1 : 0;
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(intact, 3);
  EXPECT_NE(heap.allocate((1 << 14) - 512), nullptr);
}

TEST(CppRegionHeap, MovesWithItsGuardAndTakesCHeapsOver) {
  auto first = kel::region_heap::create(4096).value_or_throw();
  kel::region_resource memory(first);
  kel::region_heap heap = std::move(first);
  memory.deallocate(memory.allocate(100, 8), 100, 8);
  void *block = heap.allocate(100);
  EXPECT_TRUE(heap.deallocate(block));
  heap.reset(KEL_VMemCreate(nullptr, 1 << 20));
  void *kept = heap.allocate(100);
  block = heap.allocate(100);
  ASSERT_NE(kept, nullptr);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(heap.deallocate(block));
}

TEST(CppRegionResource, CarriesContainersAndAnyAlignment) {
  auto heap = kel::region_heap::create(1 << 20).value_or_throw();
  const uint32_t before = heap.free_bytes();
  {
    kel::region_resource memory(heap);
    std::pmr::map<int, std::pmr::string> names(&memory);
    for (int i = 0; i < 100; ++i)
      names.emplace(i, "a name that is too long to live inside the string itself");
    EXPECT_EQ(names.size(), 100u);
    for (size_t align = 1; align <= 4096; align *= 2) {
      void *block = memory.allocate(100, align);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % align, 0u);
      std::memset(block, 0xff, 100);
      memory.deallocate(block, 100, align);
    }
    EXPECT_LT(heap.free_bytes(), before);
  }
  void *all = heap.allocate(900000);
  EXPECT_NE(all, nullptr) << "everything came back in one piece";
}

TEST(CppRegionResource, SaysThatItIsFullByThrowing) {
  auto heap = kel::region_heap::create(4096).value_or_throw();
  kel::region_resource memory(heap);
  EXPECT_THROW((void)memory.allocate(10000), std::bad_alloc);
  EXPECT_THROW((void)memory.allocate(UINT32_MAX, 64), std::bad_alloc);
  const volatile size_t absurd = SIZE_MAX - 4;  // a constant one the compiler refuses
  EXPECT_THROW((void)memory.allocate(absurd, 64), std::bad_alloc);
}

kel::status write(kel::media_pool &pool, uint8_t value, uint32_t size = 10) {
  auto frame = pool.offer();
  if (!frame)
    return frame.outcome();
  std::memset(frame->writable().data(), value, size);
  frame->size = size;
  frame->time_stamp = value;
  return pool.commit(*frame);
}

TEST(CppMediaPool, EachReaderGetsEachFrame) {
  auto pool = kel::media_pool::create({4096, 64, 8}).value_or_throw();
  auto first = pool.attach().value_or_throw();
  auto second = pool.attach().value_or_throw();
  EXPECT_TRUE(first.next().error() == std::errc::resource_unavailable_try_again);
  EXPECT_TRUE(write(pool, 1));
  EXPECT_TRUE(write(pool, 2));
  for (kel::media_reader *reader : {&first, &second}) {
    for (uint8_t value = 1; value <= 2; ++value) {
      const auto frame = reader->next();
      ASSERT_TRUE(frame);
      EXPECT_EQ(frame->contents()[9], value);
      EXPECT_EQ(frame->contents().size(), 10u);
      EXPECT_EQ(frame->time_stamp, value);
      EXPECT_TRUE(reader->done());
    }
    EXPECT_FALSE(reader->next());
  }
  EXPECT_EQ(pool.held(), 0u);
}

TEST(CppMediaPool, AReaderThatIsAFullPoolBehindStillReads) {
  auto pool = kel::media_pool::create({4096, 64, 4}).value_or_throw();
  auto reader = pool.attach().value_or_throw();
  for (int round = 0; round < 3; ++round) {
    for (uint8_t i = 0; i < 4; ++i)
      ASSERT_TRUE(write(pool, i));
    EXPECT_TRUE(write(pool, 9).error() == std::errc::no_space_on_device);
    for (uint8_t i = 0; i < 4; ++i) {
      const auto frame = reader.next();
      ASSERT_TRUE(frame);
      EXPECT_EQ(frame->contents()[0], i);
      EXPECT_TRUE(reader.done());
    }
  }
}

// Frames of all their room, the pool being filled and read in turn: false when a frame was
// not what was written.
bool full_frames_stay(const kel::media_options &options) {
  auto pool = kel::media_pool::create(options).value_or_throw();
  auto reader = pool.attach().value_or_throw();
  uint8_t written = 0;
  uint8_t seen = 0;
  for (int round = 0; round < 100; ++round) {
    while (write(pool, written, options.frame_room))
      ++written;
    for (int reads = 0; reads <= round % 3 && seen != written; ++reads) {
      const auto frame = reader.next();
      const std::vector<uint8_t> expected(options.frame_room, seen++);
      if (!frame || std::memcmp(frame->data, expected.data(), expected.size()) != 0 ||
          !reader.done())
        return false;
    }
  }
  return true;
}

TEST(CppMediaPool, FramesOfAllTheRoomStayUntilTheyAreRead) {
  for (const uint32_t room : {64u, 100u})
    for (const uint32_t area : {100u, 256u, 512u, 640u})
      for (const uint32_t frames : {4u, 16u})
        for (const uint32_t align : {0u, 16u, 24u})
          EXPECT_TRUE(full_frames_stay({area, room, frames, align}))
              << room << ' ' << area << ' ' << frames << ' ' << align;
}

TEST(CppMediaPool, OffersTheRoomThatWasAskedFor) {
  auto pool = kel::media_pool::create({100, 100, 2, 16}).value_or_throw();
  EXPECT_EQ(pool.offer()->room, 100u);
  EXPECT_EQ(pool.offer()->writable().size(), 100u);
  EXPECT_FALSE(kel::media_pool::create({100, 101, 2}));
  EXPECT_FALSE(kel::media_pool::create({UINT32_MAX, UINT32_MAX, 2}));
}

TEST(CppMediaPool, WithoutReadersItNeverFills) {
  auto pool = kel::media_pool::create({4096, 64, 2}).value_or_throw();
  for (uint8_t i = 0; i < 200; ++i)
    ASSERT_TRUE(write(pool, i));
}

TEST(CppMediaPool, ALateReaderStartsWithTheNextFrameAndAnEarlyEndFreesItsFrames) {
  auto pool = kel::media_pool::create({4096, 64, 4}).value_or_throw();
  auto early = pool.attach().value_or_throw();
  EXPECT_TRUE(write(pool, 1));
  auto late = pool.attach().value_or_throw();
  EXPECT_TRUE(write(pool, 2));
  EXPECT_EQ(late.next()->contents()[0], 2);
  EXPECT_EQ(early.next()->contents()[0], 1);
  early = kel::media_reader();
  EXPECT_TRUE(late.done());
  late.detach();
  for (uint8_t i = 0; i < 20; ++i)
    ASSERT_TRUE(write(pool, i));
}

TEST(CppMediaPool, AReaderDoesNotLeaveWhileAFrameIsCommitted) {
  auto pool = kel::media_pool::create({4096, 64, 4}).value_or_throw();
  auto reader = pool.attach().value_or_throw();
  std::atomic<bool> left{false};
  std::atomic<pid_t> id{0};
  std::thread leaving;
  {
    const kel::detail::media_guard committing(pool.native_handle());
    leaving = std::thread([&] {
      id = ThreadId();
      reader.detach();
      left = true;
    });
    EXPECT_TRUE(AwaitSleep(id));
    EXPECT_FALSE(left);
  }
  leaving.join();
}

TEST(CppMediaPool, ReadersComeAndGoWhileTheWriterWrites) {
  auto pool = kel::media_pool::create({1 << 16, 64, 16}).value_or_throw();
  std::vector<std::thread> readers;
  constexpr int kRounds = 200;
  std::atomic<int> running{3};
  std::vector<kel::media_reader> waiting;
  for (int i = 0; i < 3 * kRounds; ++i)
    waiting.push_back(pool.attach().value_or_throw());
  for (int t = 0; t < 3; ++t)
    readers.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        kel::media_reader mine = std::move(waiting[static_cast<size_t>(t * kRounds + i)]);
        for (int n = 0; n < i % 4 && mine.next(); ++n)
          (void)mine.done();
      }
      --running;
    });
  uint8_t value = 0;
  while (running > 0)
    if (!write(pool, value++))
      std::this_thread::yield();
  for (std::thread &reader : readers)
    reader.join();
  EXPECT_EQ(pool.held(), 0u);
  EXPECT_TRUE(write(pool, 1));
}

}  // namespace
