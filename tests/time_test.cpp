// Clocks and time arithmetic.

#include "kelcore_time.h"

#include <gtest/gtest.h>
#include <string.h>

#include <limits>

#include "faults.h"

namespace {

// Lets one clock show a fixed time; reading any other one is an error.
void SetClock(clockid_t clock, timespec shown) {
  faults::clock_gettime.Replace([=](clockid_t asked, timespec *out) {
    EXPECT_EQ(asked, clock);
    *out = shown;
    return 0;
  });
}

// ---- Reading clocks

TEST(SystemTick, IsTheMonotonicClockInMilliseconds) {
  SetClock(CLOCK_MONOTONIC, {12, 345'000'000});
  EXPECT_EQ(KEL_GetSystemTick(), 12'345u);
}

TEST(SystemTick, IsTruncated) {
  SetClock(CLOCK_MONOTONIC, {1, 999'999'999});
  EXPECT_EQ(KEL_GetSystemTick(), 1'999u);
}

TEST(SystemTick, IsSixtyFourBitsWide) {
  SetClock(CLOCK_MONOTONIC, {10'000'000'000, 1'000'000});
  EXPECT_EQ(KEL_GetSystemTick(), 10'000'000'000'001u);
}

TEST(SystemTick, FollowsTheRealClock) {
  timespec before;
  clock_gettime(CLOCK_MONOTONIC, &before);
  const uint64_t tick = KEL_GetSystemTick();
  timespec after;
  clock_gettime(CLOCK_MONOTONIC, &after);
  EXPECT_GE(tick, KEL_TIMESPECtoMS(&before));
  EXPECT_LE(tick, KEL_TIMESPECtoMS(&after));
}

TEST(SystemTickUS, IsTheMonotonicClockInMicroseconds) {
  SetClock(CLOCK_MONOTONIC, {12, 345'678'000});
  EXPECT_EQ(KEL_GetSystemTickUS(), 12'345'678u);
}

TEST(SystemTickUS, IsTruncated) {
  SetClock(CLOCK_MONOTONIC, {0, 1'999});
  EXPECT_EQ(KEL_GetSystemTickUS(), 1u);
}

TEST(SystemTickUS, IsSixtyFourBitsWide) {
  SetClock(CLOCK_MONOTONIC, {10'000'000'000, 1'000});
  EXPECT_EQ(KEL_GetSystemTickUS(), 10'000'000'000'000'001u);
}

TEST(EpochTime, IsTheWholeSecondsOfTheWallClock) {
  SetClock(CLOCK_REALTIME, {1'700'000'000, 999'999'999});
  EXPECT_EQ(KEL_GetEpochTime(), 1'700'000'000);
}

TEST(EpochTime, IsSixtyFourBitsWideAndSigned) {
  SetClock(CLOCK_REALTIME, {10'000'000'000, 0});
  EXPECT_EQ(KEL_GetEpochTime(), 10'000'000'000);
  SetClock(CLOCK_REALTIME, {-1, 0});
  EXPECT_EQ(KEL_GetEpochTime(), -1);
}

// ---- Conversions

TEST(TimespecToMs, TruncatesNanoseconds) {
  const timespec time{3, 999'999};
  EXPECT_EQ(KEL_TIMESPECtoMS(&time), 3'000u);
}

TEST(TimespecToMs, AddsSecondsAndMilliseconds) {
  const timespec time{7, 999'999'999};
  EXPECT_EQ(KEL_TIMESPECtoMS(&time), 7'999u);
}

TEST(TimespecToMs, IsSixtyFourBitsWide) {
  const timespec time{10'000'000'000, 5'000'000};
  EXPECT_EQ(KEL_TIMESPECtoMS(&time), 10'000'000'000'005u);
}

struct Split {
  uint64_t ms;
  int64_t seconds;
  int64_t thousandths;
};
constexpr Split kSplits[] = {
    {0, 0, 0},     {1, 0, 1},       {999, 0, 999},
    {1'000, 1, 0}, {1'999, 1, 999}, {10'000'000'000'007, 10'000'000'000, 7},
};

TEST(MsToTimeval, SplitsIntoSecondsAndMicroseconds) {
  for (const Split &split : kSplits) {
    timeval time{-1, -1};
    KEL_TimeMStoTimeval(split.ms, &time);
    EXPECT_EQ(time.tv_sec, split.seconds) << split.ms;
    EXPECT_EQ(time.tv_usec, split.thousandths * 1'000) << split.ms;
  }
}

TEST(MsToTimespec, SplitsIntoSecondsAndNanoseconds) {
  for (const Split &split : kSplits) {
    timespec time{-1, -1};
    KEL_TimeMStoTimespec(split.ms, &time);
    EXPECT_EQ(time.tv_sec, split.seconds) << split.ms;
    EXPECT_EQ(time.tv_nsec, split.thousandths * 1'000'000) << split.ms;
  }
}

TEST(MsToTimespec, TakesTheLargestValueAsUnsigned) {
  timespec time{};
  KEL_TimeMStoTimespec(std::numeric_limits<uint64_t>::max(), &time);
  EXPECT_EQ(time.tv_sec, 18'446'744'073'709'551);
  EXPECT_EQ(time.tv_nsec, 615'000'000);
}

// ---- Differences and sums

struct Difference {
  timeval start, end, result;
  int64_t ms;
};
constexpr Difference kDifferences[] = {
    {{10, 0}, {12, 500'000}, {2, 500'000}, 2'500},
    // No borrowing: the microseconds may be negative.
    {{10, 900'000}, {11, 100'000}, {1, -800'000}, 200},
    {{11, 100'000}, {10, 900'000}, {-1, 800'000}, -200},
    {{5, 5}, {5, 5}, {0, 0}, 0},
    // The division cuts toward zero on both sides.
    {{0, 0}, {0, 1'999}, {0, 1'999}, 1},
    {{0, 1'999}, {0, 0}, {0, -1'999}, -1},
    {{0, 999}, {1, 0}, {1, -999}, 1'000},
    {{0, 0}, {10'000'000'000, 7'000}, {10'000'000'000, 7'000}, 10'000'000'000'007},
};

TEST(TimevalDiff, StoresTheFieldsDifferencesAndReturnsMilliseconds) {
  for (const Difference &row : kDifferences) {
    timeval result{77, 77};
    EXPECT_EQ(KEL_TimevalDiff(&row.start, &row.end, &result), row.ms);
    EXPECT_EQ(result.tv_sec, row.result.tv_sec) << row.ms;
    EXPECT_EQ(result.tv_usec, row.result.tv_usec) << row.ms;
  }
}

struct Sum {
  timespec a, b, sum;
};
constexpr Sum kSums[] = {
    {{1, 2}, {3, 4}, {4, 6}},
    {{1, 600'000'000}, {2, 500'000'000}, {4, 100'000'000}},
    {{0, 500'000'000}, {0, 499'999'999}, {0, 999'999'999}},
    {{0, 500'000'000}, {0, 500'000'000}, {1, 0}},
    {{0, 999'999'999}, {0, 999'999'999}, {1, 999'999'998}},
    // Values that are not normalised get a single carry.
    {{0, 1'500'000'000}, {0, 1'500'000'000}, {1, 2'000'000'000}},
};

TEST(TimespecAdd, AddsWithOneCarry) {
  for (const Sum &row : kSums) {
    const timespec sum = KEL_TimespecAdd(row.a, row.b);
    EXPECT_EQ(sum.tv_sec, row.sum.tv_sec);
    EXPECT_EQ(sum.tv_nsec, row.sum.tv_nsec);
  }
}

// ---- Calendar time

TEST(LocalTime, AsksForTheTimeOfNow) {
  faults::time.Replace([](time_t *out) -> time_t {
    EXPECT_EQ(out, nullptr);
    return 86'400;
  });
  time_t shown = 0;
  faults::localtime.Replace([&](const time_t *time) {
    shown = *time;
    return faults::localtime.Real(time);
  });
  tm result{};
  EXPECT_EQ(KEL_GetlocalTime(&result), 0);
  EXPECT_EQ(shown, 86'400);
}

TEST(LocalTime, CopiesTheWholeRecord) {
  tm shown{};
  shown.tm_sec = 1;
  shown.tm_min = 2;
  shown.tm_hour = 3;
  shown.tm_mday = 4;
  shown.tm_mon = 5;
  shown.tm_year = 6;
  shown.tm_wday = 7;
  shown.tm_yday = 8;
  shown.tm_isdst = 9;
  shown.tm_gmtoff = 10;
  shown.tm_zone = "ZONE";
  faults::localtime.Replace([&](const time_t *) { return &shown; });
  tm result{};
  EXPECT_EQ(KEL_GetlocalTime(&result), 0);
  EXPECT_EQ(memcmp(&result, &shown, sizeof shown), 0);
}

TEST(LocalTime, LeavesTheRecordAsItWasWhenTheCLibraryHasNoDate) {
  faults::localtime.Replace([](const time_t *) { return nullptr; });
  tm result{};
  result.tm_year = 77;
  EXPECT_EQ(KEL_GetlocalTime(&result), 0);
  EXPECT_EQ(result.tm_year, 77);
}

TEST(LocalTime, IsTheCLibrarysCalendar) {
  const time_t now = 1'000'000'000;
  faults::time.Replace([=](time_t *) { return now; });
  tm result{};
  KEL_GetlocalTime(&result);
  EXPECT_EQ(mktime(&result), now);
}

}  // namespace
