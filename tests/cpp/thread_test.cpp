// Threads, thread pools and timers.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "kelcore.hpp"

namespace {

using namespace std::chrono_literals;

TEST(CppThread, RunsACallableAndJoinsAtTheEnd) {
  std::atomic<int> ran{0};
  {
    const auto t = kel::thread::start({"worker"}, [&ran] {
                     kel::this_thread::sleep_for(5ms);
                     ran = 1;
                   }).value_or_throw();
  }
  EXPECT_EQ(ran, 1);
}

TEST(CppThread, TakesWhatCanOnlyBeMovedAndGivesWhatItReturns) {
  auto box = std::make_unique<int>(41);
  auto t = kel::thread::start({}, [box = std::move(box)]() mutable {
             ++*box;
             return box.release();
           }).value_or_throw();
  const auto returned = t.join();
  ASSERT_TRUE(returned);
  const std::unique_ptr<int> answer(static_cast<int *>(*returned));
  EXPECT_EQ(*answer, 42);
  EXPECT_FALSE(t);
}

void *entry(void *arg) {
  return arg;
}

TEST(CppThread, RunsACEntry) {
  int argument = 0;
  auto t = kel::thread::start({}, entry, &argument).value_or_throw();
  EXPECT_EQ(*t.join(), &argument);
}

TEST(CppThread, JoiningAnEmptyOwnerFails) {
  kel::thread none;
  EXPECT_FALSE(none.join());
}

TEST(CppThread, OneThatExitsLeavesNothingBehind) {
  const auto shared = std::make_shared<int>(0);
  auto t = kel::thread::start({}, [shared] { KEL_ThreadExit(3); }).value_or_throw();
  EXPECT_EQ(*t.join(), reinterpret_cast<void *>(3));
  EXPECT_EQ(shared.use_count(), 1);
}

TEST(CppThread, ADetachedOneRunsOn) {
  // Nobody knows when the thread is done with it.
  static kel::event ended = kel::event::create().value_or_throw();
  auto t = kel::thread::start({}, [] { ended.send(); }).value_or_throw();
  EXPECT_TRUE(t.detach());
  EXPECT_FALSE(t);
  EXPECT_TRUE(ended.wait(10s));
}

TEST(CppThread, SleepsNoShorterThanAsked) {
  const auto begin = kel::tick_clock::now();
  EXPECT_TRUE(kel::this_thread::sleep_for(2500us));
  EXPECT_TRUE(kel::this_thread::sleep_for(-1s));
  EXPECT_GE(kel::tick_clock::now() - begin, 2500us);
}

int32_t twice(const int &n) {
  return 2 * n;
}

TEST(CppThreadPool, RunsJobsAndCollectsThem) {
  auto pool = kel::thread_pool::create("p", 2).value_or_throw();
  int three = 3;
  int four = 4;
  const auto first = pool.run<twice>(three);
  const auto second = pool.run<twice>(four);
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(pool.run(nullptr, nullptr).error() == std::errc::device_or_resource_busy);
  EXPECT_EQ(*pool.collect(*second), 8);
  EXPECT_EQ(*pool.collect(*first), 6);
  EXPECT_FALSE(pool.collect(*first));
  EXPECT_FALSE(kel::thread_pool::create("p", 0));
}

int32_t count_up(std::atomic<int> &count) {
  return ++count;
}

TEST(CppThreadPool, ItsEndDropsNoJob) {
  std::atomic<int> done{0};
  constexpr int kRounds = 50;
  for (int i = 0; i < kRounds; ++i) {
    auto pool = kel::thread_pool::create("p", 2).value_or_throw();
    ASSERT_TRUE(pool.run<count_up>(done));
    ASSERT_TRUE(pool.run<count_up>(done));
    if (i % 2 != 0)
      pool = kel::thread_pool();
  }
  EXPECT_EQ(done, 2 * kRounds);
}

void tell(kel::event &due) {
  due.send();
}

TEST(CppTimer, CallsBackOnceOrPeriodically) {
  auto due = kel::event::create().value_or_throw();
  auto t = kel::timer::create<tell>(1ms, due).value_or_throw();
  EXPECT_FALSE(due.wait(5ms)) << "not armed yet";
  EXPECT_TRUE(t.start_once());
  EXPECT_TRUE(due.wait(kel::infinite));
  EXPECT_TRUE(t.start_periodic(2ms));
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(due.wait(kel::infinite));
  EXPECT_TRUE(t.stop());
}

TEST(CppTimer, AnIntervalOfZeroIsShortNotStored) {
  auto due = kel::event::create().value_or_throw();
  auto t = kel::timer::create<tell>(1h, due).value_or_throw();
  EXPECT_TRUE(t.start_once(0s));
  EXPECT_TRUE(due.wait(10s));
  auto zero = kel::timer::create<tell>(0s, due).value_or_throw();
  EXPECT_TRUE(zero.start_once());
  EXPECT_TRUE(due.wait(10s));
}

struct late_unit {
  kel::semaphore *units;
  std::atomic<int> left;
};

void give_at_last(late_unit &unit) {
  if (--unit.left == 0)
    unit.units->put();
}

TEST(CppSemaphore, EndlessWaitsGoOnThroughSignals) {
  auto units = kel::semaphore::create(0).value_or_throw();
  late_unit unit{&units, {5}};
  auto t = kel::timer::create<give_at_last>(1ms, unit).value_or_throw();
  EXPECT_TRUE(t.start_periodic());
  EXPECT_TRUE(units.acquire());
  EXPECT_LE(unit.left, 0);
}

}  // namespace
