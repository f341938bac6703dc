// Ring buffer: the write and read protocols, sliding, failures.

#include "kelcore_ring.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <random>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelring", "kelcore_ring", func, message};
}

template <typename T>
T FieldOf(const KEL_RING *ring, size_t offset) {
  T value;
  memcpy(&value, reinterpret_cast<const char *>(ring) + offset, sizeof value);
  return value;
}
uint8_t *BufferOf(const KEL_RING *ring) {
  return FieldOf<uint8_t *>(ring, 0);
}
uint32_t ReadOffsetOf(const KEL_RING *ring) {
  return FieldOf<uint32_t>(ring, 16);
}

class Ring : public testing::Test {
 protected:
  ~Ring() override { KELRing_Destroy(ring); }
  KEL_RING *ring = KELRing_Create(100);
  uint32_t size = 0;
};

TEST(RingCreate, TakesARecordAndTwiceTheSizeUnfilled) {
  AllocHooks hooks;
  TraceCapture trace;
  KEL_RING *ring = KELRing_Create(100);
  ASSERT_NE(ring, nullptr);
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 24u);
  EXPECT_EQ(hooks.adds[1].size, 200u);
  EXPECT_EQ(hooks.adds[0].file, "kelcore_ring");
  EXPECT_EQ(hooks.adds[1].func, "KELRing_Create");
  EXPECT_EQ(BufferOf(ring), hooks.adds[1].block);
  EXPECT_EQ(FieldOf<uint32_t>(ring, 8), 100u);
  EXPECT_EQ(FieldOf<uint32_t>(ring, 12), 0u);
  EXPECT_EQ(ReadOffsetOf(ring), 0u);
  const void *shown = ring;
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KELRing_Create", "size(100)\n"),
                                 Line("DEBUG", "KELRing_Create",
                                      Format("ring buffer(%p) created. size(100)\n", shown))}));
  const std::string traced = Format("ring buffer (%p)\n", shown);
  const std::string debugged = Format("ring buffer (%p) size(100)\n", shown);
  EXPECT_EQ(KELRing_Destroy(ring), 0);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KELRing_Destroy", traced),
                                 Line("DEBUG", "KELRing_Destroy", debugged)}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(RingCreate, RecordFailureTellsTheRecordsSize) {
  TraceCapture trace("kelring:1");
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KELRing_Create(100), nullptr);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("ERROR", "KELRing_Create",
                        "out of memory. can not create ring buf handle. size(24)\n")}));
}

TEST(RingCreate, AreaFailureTellsTheSizeAskedForAndReleasesTheRecord) {
  AllocHooks hooks;
  TraceCapture trace("kelring:1");
  faults::malloc.Fail(nullptr, ENOMEM, 1);
  EXPECT_EQ(KELRing_Create(100), nullptr);
  faults::ResetAll();
  EXPECT_EQ(KELRing_Create(0x80000000), nullptr) << "twice that does not fit";
  EXPECT_EQ(
      trace.Messages(),
      (std::vector<std::string>{"out of memory. can not alloc ring buf. size(100)\n",
                                "out of memory. can not alloc ring buf. size(-2147483648)\n"}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(RingNull, IsRefusedByEveryCall) {
  TraceCapture trace;
  uint32_t size = 77;
  EXPECT_EQ(KELRing_Destroy(nullptr), -1);
  KELRing_Reset(nullptr);
  EXPECT_EQ(KELRing_GetWBuf(nullptr, &size), nullptr);
  EXPECT_EQ(KELRing_FillWBuf(nullptr, 1), 0u);
  EXPECT_EQ(KELRing_GetRBuf(nullptr, &size), nullptr);
  EXPECT_EQ(KELRing_DelRBuf(nullptr, 1), 0u);
  EXPECT_EQ(size, 77u);
  const std::string error = "invalid ring buffer handle\n";
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("TRACE", "KELRing_Destroy", "ring buffer ((nil))\n"),
             Line("ERROR", "KELRing_Destroy", error),
             Line("TRACE", "KELRing_Reset", "ring buffer ((nil))\n"),
             Line("ERROR", "KELRing_Reset", error), Line("ERROR", "KELRing_GetWBuf", error),
             Line("ERROR", "KELRing_FillWBuf", error), Line("ERROR", "KELRing_GetRBuf", error),
             Line("ERROR", "KELRing_DelRBuf", error)}));
}

TEST_F(Ring, OffersItsNominalSizeWhateverItHolds) {
  uint8_t *buffer = BufferOf(ring);
  EXPECT_EQ(KELRing_GetWBuf(ring, &size), buffer);
  EXPECT_EQ(size, 100u);
  EXPECT_EQ(KELRing_FillWBuf(ring, 60), 60u);
  EXPECT_EQ(KELRing_GetWBuf(ring, &size), buffer + 60);
  EXPECT_EQ(size, 100u);
  EXPECT_EQ(KELRing_GetRBuf(ring, &size), buffer);
  EXPECT_EQ(size, 60u);
}

TEST_F(Ring, SlidesBackOnceTheNominalSizeIsPassed) {
  uint8_t *buffer = BufferOf(ring);
  KELRing_FillWBuf(ring, 60);
  EXPECT_EQ(KELRing_DelRBuf(ring, 50), 10u);
  EXPECT_EQ(ReadOffsetOf(ring), 50u) << "no move yet";
  EXPECT_EQ(KELRing_GetRBuf(ring, &size), buffer + 50);
  EXPECT_EQ(KELRing_FillWBuf(ring, 40), 50u);
  EXPECT_EQ(KELRing_DelRBuf(ring, 49), 1u);
  EXPECT_EQ(ReadOffsetOf(ring), 99u);
  EXPECT_EQ(KELRing_DelRBuf(ring, 1), 0u);
  EXPECT_EQ(ReadOffsetOf(ring), 0u);
}

TEST_F(Ring, WhatIsUnreadMovesWithIt) {
  uint8_t *buffer = BufferOf(ring);
  KELRing_FillWBuf(ring, 90);
  KELRing_DelRBuf(ring, 80);
  for (uint8_t i = 0; i < 60; ++i)
    buffer[90 + i] = i;
  KELRing_FillWBuf(ring, 60);
  EXPECT_EQ(KELRing_DelRBuf(ring, 40), 30u);
  EXPECT_EQ(ReadOffsetOf(ring), 0u);
  EXPECT_EQ(KELRing_GetRBuf(ring, &size), buffer);
  EXPECT_EQ(size, 30u);
  for (uint8_t i = 0; i < 30; ++i)
    EXPECT_EQ(buffer[i], 30 + i);
}

TEST_F(Ring, TracesTheStateAfterTheSlide) {
  KELRing_FillWBuf(ring, 90);
  KELRing_DelRBuf(ring, 80);
  KELRing_FillWBuf(ring, 60);
  TraceCapture trace("kelring:3");
  KELRing_DelRBuf(ring, 40);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KELRing_DelRBuf", "updated read buffer size(30) offset(0)\n")}));
}

TEST_F(Ring, TheWritePointerTracedIsTheOneReturned) {
  KELRing_FillWBuf(ring, 60);
  KELRing_DelRBuf(ring, 20);
  TraceCapture trace("kelring:3");
  const uint8_t *to = KELRing_GetWBuf(ring, &size);
  EXPECT_EQ(to, BufferOf(ring) + 60);
  const uint8_t *from = KELRing_GetRBuf(ring, &size);
  EXPECT_EQ(from, BufferOf(ring) + 20);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KELRing_GetWBuf", Format("write Ptr(%x) size(100)\n", Low32(to))),
             Line("DEBUG", "KELRing_GetRBuf",
                  Format("read Ptr(%x) offset(20) size(40)\n", Low32(from)))}));
}

TEST_F(Ring, IsFilledAtTheReadOffsetAfterAReset) {
  KELRing_FillWBuf(ring, 60);
  KELRing_DelRBuf(ring, 20);
  KELRing_Reset(ring);
  uint8_t *to = KELRing_GetWBuf(ring, &size);
  memcpy(to, "abc", 3);
  EXPECT_EQ(KELRing_FillWBuf(ring, 3), 3u);
  EXPECT_EQ(KELRing_GetRBuf(ring, &size), to);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(memcmp(BufferOf(ring) + 20, "abc", 3), 0);
}

TEST(RingSize0, HoldsNothingAndAlwaysSlides) {
  KEL_RING *ring = KELRing_Create(0);
  ASSERT_NE(ring, nullptr);
  uint32_t size = 77;
  EXPECT_EQ(KELRing_GetWBuf(ring, &size), BufferOf(ring));
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(KELRing_DelRBuf(ring, 0), 0u);
  EXPECT_EQ(ReadOffsetOf(ring), 0u);
  EXPECT_EQ(KELRing_Destroy(ring), 0);
}

TEST(RingCreate, FailuresLeaveErrno) {
  for (const int skip : {0, 1}) {
    faults::malloc.Fail(nullptr, ENOMEM, skip);
    errno = 0;
    EXPECT_EQ(KELRing_Create(100), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    faults::ResetAll();
  }
}

TEST_F(Ring, ResetForgetsTheDataButNotTheOffset) {
  KELRing_FillWBuf(ring, 60);
  KELRing_DelRBuf(ring, 20);
  TraceCapture trace;
  KELRing_Reset(ring);
  const void *shown = ring;
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KELRing_Reset", Format("ring buffer (%p)\n", shown)),
                   Line("DEBUG", "KELRing_Reset", "cur ring buffer length(40)\n")}));
  EXPECT_EQ(KELRing_GetWBuf(ring, &size), BufferOf(ring) + 20);
  EXPECT_EQ(KELRing_GetRBuf(ring, &size), BufferOf(ring) + 20);
  EXPECT_EQ(size, 0u);
}

TEST_F(Ring, TracesEachStep) {
  const unsigned buffer = Low32(BufferOf(ring));
  TraceCapture trace;
  KELRing_GetWBuf(ring, &size);
  KELRing_FillWBuf(ring, 30);
  KELRing_DelRBuf(ring, 10);
  KELRing_GetRBuf(ring, &size);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Line("DEBUG", "KELRing_GetWBuf", Format("write Ptr(%x) size(100)\n", buffer)),
             Line("DEBUG", "KELRing_FillWBuf", "updated write buffer len(30)\n"),
             Line("DEBUG", "KELRing_DelRBuf", "updated read buffer size(20) offset(10)\n"),
             Line("DEBUG", "KELRing_GetRBuf",
                  Format("read Ptr(%x) offset(10) size(20)\n", buffer + 10))}));
}

TEST_F(Ring, CountsAreNotCheckedAndWrap) {
  EXPECT_EQ(KELRing_FillWBuf(ring, 10), 10u);
  EXPECT_EQ(KELRing_FillWBuf(ring, -4), 6u);
  EXPECT_EQ(KELRing_DelRBuf(ring, 120), 6u - 120u);
  EXPECT_EQ(ReadOffsetOf(ring), 0u);
}

TEST(RingCounts, WhatLiesInTheAreaMovesAlsoWhenTheCountIsWrong) {
  KEL_RING *ring = KELRing_Create(100);
  uint32_t size = 0;
  uint8_t *const area = KELRing_GetWBuf(ring, &size);
  for (int i = 0; i < 200; ++i)
    area[i] = static_cast<uint8_t>(i);
  KELRing_FillWBuf(ring, 250);
  EXPECT_EQ(KELRing_DelRBuf(ring, 100), 150u);
  for (int i = 0; i < 100; ++i)
    ASSERT_EQ(area[i], 100 + i);
  KELRing_Destroy(ring);
}

TEST_F(Ring, AStreamGoesThroughUnchanged) {
  std::mt19937 random(1);
  uint8_t next_in = 0, next_out = 0;
  for (int round = 0; round < 20'000; ++round) {
    uint32_t held = 0;
    KELRing_GetRBuf(ring, &held);
    uint8_t *to = KELRing_GetWBuf(ring, &size);
    const uint32_t written = static_cast<uint32_t>(random()) % (size - held + 1);
    for (uint32_t i = 0; i < written; ++i)
      to[i] = next_in++;
    KELRing_FillWBuf(ring, static_cast<int32_t>(written));
    const uint8_t *from = KELRing_GetRBuf(ring, &held);
    const uint32_t taken = static_cast<uint32_t>(random()) % (held + 1);
    for (uint32_t i = 0; i < taken; ++i)
      ASSERT_EQ(from[i], next_out++);
    KELRing_DelRBuf(ring, taken);
  }
}

}  // namespace
