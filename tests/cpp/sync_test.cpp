// Owners, errors, time-outs, locks, semaphores and events.

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

#include "kelcore.hpp"

namespace {

using namespace std::chrono_literals;

static_assert(sizeof(kel::mutex) == sizeof(void *));
static_assert(!std::is_copy_constructible_v<kel::mutex>);
static_assert(std::is_nothrow_move_constructible_v<kel::mutex>);
static_assert(std::is_trivially_copyable_v<kel::status>);
static_assert(std::is_trivially_copyable_v<kel::result<int *>>);

TEST(CppTimeout, RoundsUpToWholeMilliseconds) {
  EXPECT_EQ(kel::timeout(1us).native(), 1u);
  EXPECT_EQ(kel::timeout(1000us).native(), 1u);
  EXPECT_EQ(kel::timeout(1001us).native(), 2u);
  EXPECT_EQ(kel::timeout(2s).native(), 2000u);
  EXPECT_EQ(kel::timeout(std::chrono::duration<double>(0.0105)).native(), 11u);
}

TEST(CppTimeout, NegativeDurationsDoNotWait) {
  EXPECT_EQ(kel::timeout(0s).native(), 0u);
  EXPECT_EQ(kel::timeout(-5s).native(), 0u);
  EXPECT_EQ(kel::timeout(std::chrono::nanoseconds::min()).native(), 0u);
}

TEST(CppTimeout, NoDurationIsForEver) {
  EXPECT_EQ(kel::timeout(std::chrono::nanoseconds::max()).native(), KEL_WAIT_FOREVER - 1);
  EXPECT_EQ(kel::timeout(std::chrono::hours::max()).native(), KEL_WAIT_FOREVER - 1);
  EXPECT_EQ(kel::timeout(std::chrono::milliseconds(KEL_WAIT_FOREVER)).native(),
            KEL_WAIT_FOREVER - 1);
  EXPECT_EQ(kel::timeout(std::chrono::duration<int8_t, std::nano>(100)).native(), 1u);
  EXPECT_TRUE(kel::infinite.is_infinite());
}

TEST(CppError, ATimeOutIsOneHoweverTheCallsSayIt) {
  for (const kel::status how :
       {kel::status(KEL_ERR_TIMEOUT), kel::status(-ETIMEDOUT), kel::status(ETIMEDOUT)}) {
    EXPECT_TRUE(how.timed_out());
    EXPECT_TRUE(how.error() == std::errc::timed_out);
    EXPECT_EQ(how.error().message(), std::generic_category().message(ETIMEDOUT));
  }
  EXPECT_FALSE(kel::status(-1).timed_out());
}

TEST(CppError, AFailureWithoutAReasonIsNoErrno) {
  const std::error_code error = kel::status(-1).error();
  EXPECT_FALSE(error == std::errc::operation_not_permitted);
  EXPECT_EQ(error.message(), KEL_GetErrorStr(KEL_ERR_FAIL));
}

TEST(CppError, CodesKeepTheirTexts) {
  EXPECT_EQ(make_error_code(kel::errc::out_of_memory).message(),
            KEL_GetErrorStr(KEL_ERR_OUT_OF_MEMORY));
  EXPECT_TRUE(make_error_code(kel::errc::out_of_memory) == std::errc::not_enough_memory);
  EXPECT_STREQ(kel::category().name(), "kelcore");
  EXPECT_FALSE(kel::status().error());
  EXPECT_EQ(kel::status().error().message(), "success");
  EXPECT_TRUE(kel::status(std::errc::invalid_argument).error() == std::errc::invalid_argument);
  const std::error_code from_enum = kel::errc::disk_full;
  EXPECT_TRUE(from_enum == std::errc::no_space_on_device);
}

TEST(CppResult, ThrowsOnlyWhenAsked) {
  kel::result<int> none(kel::errc::end_of_data);
  EXPECT_FALSE(none);
  EXPECT_EQ(none.value_or(7), 7);
  try {
    (void)std::move(none).value_or_throw();
    FAIL() << "did not throw";
  } catch (const std::system_error &error) {
    EXPECT_EQ(error.code(), kel::errc::end_of_data);
  }
  EXPECT_EQ(kel::result<int>(5).value_or_throw(), 5);
  EXPECT_NO_THROW(kel::status().or_throw());
  EXPECT_THROW(kel::status(-1).or_throw(), std::system_error);
}

TEST(CppResult, ChainsWhatReturnsResults) {
  const auto half = [](int n) -> kel::result<int> {
    if (n % 2 != 0)
      return std::errc::invalid_argument;
    return n / 2;
  };
  EXPECT_EQ(*kel::result<int>(8).and_then(half).and_then(half), 2);
  EXPECT_TRUE(kel::result<int>(2).and_then(half).and_then(half).error() ==
              std::errc::invalid_argument);
}

TEST(CppOwner, MovesWithoutReleasingTwice) {
  kel::mutex first = kel::mutex::create().value_or_throw();
  KEL_MUTEX *handle = first.native_handle();
  kel::mutex second = std::move(first);
  EXPECT_FALSE(first);
  EXPECT_EQ(second.native_handle(), handle);
  second = kel::mutex::create().value_or_throw();
  kel::mutex &same = second;
  second = std::move(same);
  EXPECT_TRUE(second);
  KEL_MUTEX *given_up = second.release();
  EXPECT_FALSE(second);
  EXPECT_EQ(KEL_MutexDestroy(given_up), 0u);
}

int released = 0;
void count_release(int *) {
  ++released;
}

TEST(CppOwner, ReleasesWhatItIsMovedOver) {
  released = 0;
  int handles[3] = {};
  {
    kel::owner<int, &count_release> first(&handles[0]);
    first = kel::owner<int, &count_release>(&handles[1]);
    EXPECT_EQ(released, 1);
    first.reset(&handles[2]);
    EXPECT_EQ(released, 2);
    const kel::owner<int, &count_release> empty;
  }
  EXPECT_EQ(released, 3);
}

TEST(CppMutex, FitsTheStandardsGuards) {
  kel::mutex a = kel::mutex::create().value_or_throw();
  kel::mutex b = kel::mutex::create().value_or_throw();
  {
    const std::scoped_lock both(a, b);
    EXPECT_FALSE(a.try_lock());
    EXPECT_FALSE(b.try_lock());
  }
  {
    std::unique_lock<kel::mutex> later(a, std::defer_lock);
    EXPECT_TRUE(later.try_lock());
  }
  const std::lock_guard<kel::mutex> again(a);
}

TEST(CppMutex, TimedLocksGiveUp) {
  kel::timed_mutex m = kel::timed_mutex::create().value_or_throw();
  const std::unique_lock<kel::timed_mutex> held(m);
  std::thread([&m] {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE((std::unique_lock<kel::timed_mutex>(m, 20ms)));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 19ms);
    EXPECT_FALSE((std::unique_lock<kel::timed_mutex>(
        m, std::chrono::system_clock::now() + std::chrono::milliseconds(5))));
  }).join();
}

TEST(CppMutex, AnEmptyOwnerSaysSo) {
  kel::mutex none;
  EXPECT_FALSE(none.lock());
  EXPECT_FALSE(none.try_lock());
}

TEST(CppSemaphore, CountsUnits) {
  auto s = kel::semaphore::create(1).value_or_throw();
  EXPECT_TRUE(s.acquire());
  EXPECT_FALSE(s.try_acquire());
  EXPECT_FALSE(s.try_acquire_for(5ms));
  EXPECT_TRUE(s.get(5ms).timed_out());
  EXPECT_TRUE(s.get(kel::no_wait).timed_out());
  EXPECT_TRUE(s.put());
  EXPECT_TRUE(s.put());
  EXPECT_EQ(s.count(), 2);
  EXPECT_TRUE(s.try_acquire_for(kel::infinite));
  s.drain();
  EXPECT_EQ(s.count(), 0);
}

TEST(CppSemaphore, ANameThatCannotBeSaysWhy) {
  const auto none = kel::semaphore::open_existing("/kelcore-cpp-no-such-semaphore");
  ASSERT_FALSE(none);
  EXPECT_TRUE(none.error() == std::errc::no_such_file_or_directory) << none.error().message();
}

TEST(CppEvent, WakeUpsAreCounted) {
  auto e = kel::event::create().value_or_throw();
  std::thread([&e] {
    e.send();
    e.send();
  }).join();
  EXPECT_EQ(e.pending(), 2);
  EXPECT_TRUE(e.wait(kel::infinite));
  EXPECT_TRUE(e.wait(1s));
  EXPECT_TRUE(e.wait(5ms).timed_out());
  EXPECT_TRUE(e.wait(kel::no_wait).timed_out());
}

TEST(CppWait, AnEmptyOwnerIsNoTimeOut) {
  kel::semaphore no_semaphore;
  kel::event no_event;
  for (const kel::timeout limit : {kel::no_wait, kel::timeout(5ms), kel::infinite}) {
    EXPECT_TRUE(no_semaphore.get(limit).error() == std::errc::invalid_argument);
    EXPECT_TRUE(no_event.wait(limit).error() == std::errc::invalid_argument);
  }
  EXPECT_TRUE(no_semaphore.leave().error() == std::errc::invalid_argument);
  EXPECT_TRUE(no_event.leave().error() == std::errc::invalid_argument);
}

}  // namespace
