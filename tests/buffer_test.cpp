// Media buffer pool: wrapping, counting, sharing between handles.

#include "kelcore_buffer.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelbuffer", "kelcore_buffer", func, message};
}
TraceLine Error(const char *func, const std::string &message) {
  return Line("ERROR", func, message);
}

KEL_BUF_PARAM Param(uint32_t bufsize, uint32_t minsize, uint32_t number, uint32_t align = 0) {
  KEL_BUF_PARAM param = {};
  param.bufsize = bufsize;
  param.minsize = minsize;
  param.number = number;
  param.align = align;
  param.index = 3;
  param.media = 1;
  return param;
}

class Buffer : public testing::Test {
 protected:
  ~Buffer() override { KELBuf_Destroy(buf); }
  void Make(uint32_t bufsize, uint32_t minsize, uint32_t number, uint32_t align = 0) {
    const KEL_BUF_PARAM param = Param(bufsize, minsize, number, align);
    buf = KELBuf_Create(&param, nullptr);
    ASSERT_NE(buf, nullptr);
    KEL_BUF_DESC desc = {};
    ASSERT_EQ(KELBuf_GetWBuf(buf, &desc), 0);
    area = static_cast<uint8_t *>(desc.data);
  }
  // Commits a frame of `size` bytes where the pool offers it; returns its offset.
  int64_t Write(uint32_t size, uint64_t time_stamp = 0) {
    KEL_BUF_DESC desc = {};
    const int32_t result = KELBuf_GetWBuf(buf, &desc);
    if (result != 0)
      return result;
    desc.size = size;
    desc.time_stamp = time_stamp;
    EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), 0);
    return static_cast<uint8_t *>(desc.data) - area;
  }
  int32_t Delete(KEL_BUF *from = nullptr) {
    KEL_BUF_DESC desc = {};
    return KELBuf_DelRBuf(from != nullptr ? from : buf, &desc);
  }
  KEL_BUF_STATUS Status(KEL_BUF *of = nullptr) {
    KEL_BUF_STATUS status = {};
    EXPECT_EQ(KELBuf_BufStatus(of != nullptr ? of : buf, &status), 0);
    return status;
  }
  KEL_BUF *buf = nullptr;
  uint8_t *area = nullptr;
};

// ---- Creation ----

TEST(BufferCreate, TakesItsPartsAndTraces) {
  AllocHooks hooks;
  TraceCapture trace("kelbuffer:4");
  KEL_BUF_PARAM param = Param(1000, 100, 4, 16);
  KEL_BUF *buf = KELBuf_Create(&param, nullptr);
  ASSERT_NE(buf, nullptr);
  std::vector<uint32_t> sizes;
  for (const auto &add : hooks.adds)
    if (add.file == "kelcore_buffer")
      sizes.push_back(add.size);
  EXPECT_EQ(sizes, (std::vector<uint32_t>{104, 1008, 24, 192}));
  EXPECT_EQ(hooks.adds.size(), 6u) << "and two mutexes";
  EXPECT_EQ(trace.Take(),
            (Lines{Line("DEBUG", "KELBuf_Create",
                        "bufsize(1000) minsize(100) number(4) align(16) index(3)\n"),
                   Line("INFO ", "KELBuf_Create",
                        Format("handle buffer head(%x)\n", Low32(hooks.adds[1].block))),
                   Line("DEBUG", "KELBuf_Create",
                        Format("buffer(%x) media(1) index(3)\n", Low32(buf)))}));
  EXPECT_EQ(KELBuf_GetBufRefCnt(buf), 1);
  KELBuf_Destroy(buf);
  EXPECT_EQ(hooks.live(), 0);
}

TEST(BufferCreate, EachFailureIsTracedAndLeavesNothing) {
  struct {
    int failing;
    const char *message;
  } const failures[] = {{0, "buf alloc failed\n"},
                        {1, "buffer head alloc failed size(1000)\n"},
                        {2, "buffer info alloc failed size(24)\n"},
                        {3, "buffer node alloc failed size(192)\n"},
                        {4, "mutex create failed\n"}};
  for (const auto &[failing, message] : failures) {
    AllocHooks hooks;
    TraceCapture trace("kelbuffer:1");
    const KEL_BUF_PARAM param = Param(1000, 100, 4);
    faults::malloc.Fail(nullptr, ENOMEM, failing, 1);
    EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
    faults::ResetAll();
    EXPECT_EQ(trace.Take(), (Lines{Error("KELBuf_Create", message)}));
    EXPECT_EQ(hooks.live(), 0) << message;
  }
}

TEST(BufferCreate, WorksWithoutAUserLock) {
  const KEL_BUF_PARAM param = Param(1000, 100, 4);
  faults::malloc.Fail(nullptr, ENOMEM, 5, 1);
  KEL_BUF *buf = KELBuf_Create(&param, nullptr);
  faults::ResetAll();
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(KELBuf_LockEnter(buf), 0);
  EXPECT_EQ(KELBuf_LockLeave(buf), 0);
  KELBuf_Destroy(buf);
}

TEST(BufferCreate, RefusesWhatMakesNoSense) {
  TraceCapture trace("kelbuffer:1");
  EXPECT_EQ(KELBuf_Create(nullptr, nullptr), nullptr);
  KEL_BUF_PARAM param = Param(0, 0, 4);
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  param = Param(10, 10, 0);
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{"invalid arguments param((nil))\n",
                                      "invalid param bufsize(0) number(4)\n",
                                      "invalid param bufsize(10) number(0)\n"}));
}

uint8_t external_area[2000];
uint32_t external_size;
void *external_freed;
void *AllocExternal(uint32_t size) {
  external_size = size;
  return external_area;
}
void *AllocNothing(uint32_t) {
  return nullptr;
}
void FreeExternal(void *area) {
  external_freed = area;
}

TEST(BufferExternal, AreasComeAndGoThroughTheCallbacks) {
  KEL_BUF_PARAM param = Param(1000, 100, 4, 64);
  param.alloc = AllocExternal;
  param.free = FreeExternal;
  external_freed = nullptr;
  KEL_BUF *buf = KELBuf_Create(&param, nullptr);
  EXPECT_EQ(external_size, 1024u) << "rounded up to the alignment";
  KEL_BUF_DESC desc = {};
  KELBuf_GetWBuf(buf, &desc);
  EXPECT_EQ(desc.data, external_area);
  TraceCapture trace("kelbuffer:3");
  KELBuf_Destroy(buf);
  EXPECT_EQ(external_freed, external_area);
  EXPECT_EQ(trace.Messages()[2], Format("used ext buf (%x)\n", Low32(external_area)));
}

// The sizes that the system's allocator takes end at 32 bits.
TEST(BufferCreate, SizesThatDoNotFitFailLikeMissingMemory) {
  TraceCapture trace("kelbuffer:1");
  KEL_BUF_PARAM param = Param(0xFFFFFFFF, 100, 4, 16);
  external_size = 0;
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  param.alloc = AllocExternal;
  param.free = FreeExternal;
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  EXPECT_EQ(external_size, 0u) << "not even asked";
  param = Param(1000, 100, 0x10000000);
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{"buffer head alloc failed size(0)\n",
                                      "external buffer alloc failed size(0)\n",
                                      "buffer node alloc failed size(0)\n"}));
}

TEST(BufferExternal, NeedsBothCallbacksAndAnArea) {
  TraceCapture trace("kelbuffer:1");
  KEL_BUF_PARAM param = Param(1000, 100, 4);
  param.alloc = AllocExternal;
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  param.alloc = nullptr;
  param.free = FreeExternal;
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  param.alloc = AllocNothing;
  EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{Format("invalid param alloc(%x) free(0)\n",
                                             Low32(reinterpret_cast<void *>(AllocExternal))),
                                      Format("invalid param alloc(0) free(%x)\n",
                                             Low32(reinterpret_cast<void *>(FreeExternal))),
                                      "external buffer alloc failed size(1000)\n"}));
}

TEST(BufferArea, OfTheCallerIsFreedByTheLastHandleButNotByAFailure) {
  KEL_BUF_PARAM param = Param(1000, 100, 4);
  param.area = malloc(1000);
  {
    AllocHooks failing;
    faults::malloc.Fail(nullptr, ENOMEM, 2, 1);
    EXPECT_EQ(KELBuf_Create(&param, nullptr), nullptr);
    faults::ResetAll();
    for (const auto &remove : failing.removes)
      EXPECT_NE(remove.block, param.area);
  }
  memset(param.area, 1, 1000);
  KEL_BUF *buf = KELBuf_Create(&param, nullptr);
  AllocHooks hooks;
  KELBuf_Destroy(buf);
  EXPECT_EQ(hooks.removes[0].block, param.area);
}

TEST(BufferDestroy, OfNullIsTraced) {
  TraceCapture trace("kelbuffer:4");
  KELBuf_Destroy(nullptr);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KELBuf_Destroy", "Enter hbuf(0)\n"),
                                 Line("DEBUG", "KELBuf_Destroy", "invalid buf handle\n")}));
}

// ---- Writing ----

TEST_F(Buffer, OffersMinsizeBytesOneAfterTheOther) {
  Make(1000, 100, 8);
  KEL_BUF_DESC desc = {};
  EXPECT_EQ(KELBuf_GetWBuf(buf, &desc), 0);
  EXPECT_EQ(desc.room, 100u);
  EXPECT_EQ(Write(60), 0);
  EXPECT_EQ(Write(100), 60);
  EXPECT_EQ(Write(1), 160);
}

TEST_F(Buffer, SizesAreRoundedUpToTheAlignment) {
  Make(1000, 100, 8, 24);
  EXPECT_EQ(Write(1), 0);
  EXPECT_EQ(Write(25), 24);
  EXPECT_EQ(Write(1), 72);
  EXPECT_EQ(Status().used, 96u);
}

TEST_F(Buffer, ATailOfExactlyMinsizeIsNotUsed) {
  Make(300, 100, 8);
  Write(100);
  Write(100);
  Delete();
  EXPECT_EQ(Write(10), 0) << "200 to 300 is left alone";
}

TEST_F(Buffer, ATailOfMoreThanMinsizeIsUsed) {
  Make(301, 100, 8);
  Write(100);
  Write(100);
  Delete();
  EXPECT_EQ(Write(10), 200);
}

TEST_F(Buffer, WithoutAWholeFrameLeftNothingIsOffered) {
  Make(301, 100, 8);
  Write(100);
  Write(100);
  Write(100);
  TraceCapture trace("kelbuffer:1");
  EXPECT_EQ(Write(1), -28);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KELBuf_GetWBuf",
                         "not enough write buffer space (media:1, index:3, remain:1 < "
                         "minsize:100, usedcnt:3, num:8)\n")}));
}

// Deleting a frame out of turn leads the read point to a place where nothing was
// committed yet: it counts as the start of the area.
TEST_F(Buffer, AReadPointWithoutAFrameIsTheStart) {
  Make(300, 100, 8);
  Write(10);
  Write(10);
  KEL_BUF_DESC desc = {};
  ASSERT_EQ(KELBuf_FindRBuf(buf, area + 10, &desc), 0);
  Delete();
  EXPECT_EQ(Status().filled, 1u);
  EXPECT_EQ(Write(1), 20);
}

TEST_F(Buffer, WrapsOnlyWhereTheStartIsFree) {
  Make(300, 100, 8);
  Write(99);
  Write(100);
  Write(2);  // at 199, as 101 are left
  Delete();  // 99 free at the start: one too few
  TraceCapture trace("kelbuffer:1");
  EXPECT_EQ(Write(1), -28);
  EXPECT_EQ(trace.Take()[0].message.substr(0, 29), "not enough write buffer space");
  Delete();
  EXPECT_EQ(Write(1), 0);
}

TEST_F(Buffer, BehindTheReaderThereIsRoomUpToIt) {
  Make(300, 100, 8);
  Write(100);
  Write(100);
  Delete();
  EXPECT_EQ(Write(1), 0);
  TraceCapture trace("kelbuffer:1");
  EXPECT_EQ(Write(1), -28);
  EXPECT_EQ(trace.Take(),
            (Lines{Error("KELBuf_GetWBuf",
                         "not enough write buffer space (media:1, index:3, remain:99 < "
                         "minsize:100, usedcnt:2, num:8)\n")}));
}

// Frames up to the last byte: where the write point meets the read point, all the
// area counts as free, though the oldest frame is still to be read.
TEST_F(Buffer, AFullAreaCountsAsEmpty) {
  Make(300, 100, 8);
  Write(100);
  Write(100);
  Write(100);
  Delete();
  EXPECT_EQ(Write(100), 0);
  KEL_BUF_DESC unread = {};
  ASSERT_EQ(KELBuf_GetRBuf(buf, &unread), 0);
  EXPECT_EQ(unread.data, area + 100);
  EXPECT_EQ(Write(1), 100) << "the place of the frame that is still to be read";
}

TEST_F(Buffer, HoldsAsManyFramesAsItHasNodes) {
  Make(1000, 10, 2);
  Write(1);
  Write(1);
  TraceCapture trace("kelbuffer:1");
  KEL_BUF_DESC desc = {area, 1, 10, 0, 0, 0, 0, 0};
  EXPECT_EQ(KELBuf_GetWBuf(buf, &desc), -28);
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), -28);
  EXPECT_EQ(
      trace.Take(),
      (Lines{Error("KELBuf_GetWBuf",
                   "not enough write buffer (media:1, index:3, count(2) >= maxnumber(2)\n"),
             Error("KELBuf_FillWBuf", "not enough write buffer count\n")}));
  EXPECT_EQ(KELBuf_GetRBuf(buf, &desc), -25) << "a full ring reads as empty";
}

TEST_F(Buffer, RefusesBadArguments) {
  Make(1000, 100, 4);
  TraceCapture trace("kelbuffer:1");
  KEL_BUF_DESC desc = {area, 0, 100, 0, 0, 0, 0, 0};
  EXPECT_EQ(KELBuf_GetWBuf(nullptr, &desc), -22);
  EXPECT_EQ(KELBuf_GetWBuf(buf, nullptr), -22);
  EXPECT_EQ(KELBuf_FillWBuf(nullptr, &desc), -22);
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), -22);
  desc = {nullptr, 5, 100, 0, 0, 0, 0, 0};
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), -22);
  desc = {area, 5, 101, 0, 0, 0, 0, 0};
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), -22);
  desc = {area, 5, 4, 0, 0, 0, 0, 0};
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), -22);
  EXPECT_EQ(KELBuf_FillWBuf(buf, nullptr), -22);
  EXPECT_EQ(KELBuf_GetRBuf(buf, nullptr), -22);
  EXPECT_EQ(KELBuf_GetRBuf(nullptr, &desc), -22);
  EXPECT_EQ(KELBuf_DelRBuf(nullptr, &desc), -22);
  EXPECT_EQ(KELBuf_FindRBuf(nullptr, area, &desc), -22);
  EXPECT_EQ(KELBuf_FindRBuf(buf, area, nullptr), -22);
  EXPECT_EQ(KELBuf_GetBufRefCnt(nullptr), -22);
  EXPECT_EQ(KELBuf_AddBufRefCnt(nullptr), -22);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{
                Format("invalid param buf(0) node(%x)\n", Low32(&desc)),
                Format("invalid param buf(%x) node(0)\n", Low32(buf)),
                Format("invalid arguments buf((nil)) node(%p)\n", static_cast<void *>(&desc)),
                Format("invalid arguments node size(0) buf(%p)\n", static_cast<void *>(area)),
                "invalid arguments node size(5) buf((nil))\n",
                "invalid arguments bufsize(101) minsize(100) size(5)\n",
                "invalid arguments bufsize(4) minsize(100) size(5)\n",
                Format("invalid arguments buf(%p) node((nil))\n", static_cast<void *>(buf)),
                "invalid arguments\n", "invalid arguments\n", "invalid arguments\n",
                "invalid arguments\n", "invalid arguments\n"}));
}

TEST_F(Buffer, UsageIsToldInPercent) {
  Make(1000, 100, 20);
  const KEL_BUF_USAGE *usage = KELBuf_GetUsage();
  for (int i = 0; i < 7; ++i)
    Write(100);
  Write(90);  // 790 committed
  KEL_BUF_DESC desc = {};
  KELBuf_GetWBuf(buf, &desc);
  EXPECT_EQ(usage->media1[3], 89u) << "what a frame may need counts as used";
  EXPECT_EQ(usage->high, 1u);
}

TEST_F(Buffer, TheFlagIsSetFrom80Percent) {
  Make(1000, 100, 20);
  for (int i = 0; i < 6; ++i)
    Write(100);
  Write(99);
  KEL_BUF_DESC desc = {};
  KELBuf_GetWBuf(buf, &desc);
  EXPECT_EQ(KELBuf_GetUsage()->media1[3], 79u);
  EXPECT_EQ(KELBuf_GetUsage()->high, 0u);
  Write(1);
  KELBuf_GetWBuf(buf, &desc);
  EXPECT_EQ(KELBuf_GetUsage()->media1[3], 80u);
  EXPECT_EQ(KELBuf_GetUsage()->high, 1u);
}

TEST_F(Buffer, EachMediaHasItsPlaceInTheTable) {
  const KEL_BUF_USAGE *usage = KELBuf_GetUsage();
  const auto usage_of = [&](uint32_t media, uint32_t index, uint32_t bytes) {
    KEL_BUF_PARAM param = Param(1000, 100, 20);
    param.media = media;
    param.index = index;
    buf = KELBuf_Create(&param, nullptr);
    KEL_BUF_DESC desc = {};
    KELBuf_GetWBuf(buf, &desc);
    desc.size = bytes;
    EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), 0);
    EXPECT_EQ(KELBuf_GetWBuf(buf, &desc), 0);
    KELBuf_Destroy(std::exchange(buf, nullptr));
  };
  usage_of(1, 0, 10);
  usage_of(1, 15, 20);
  usage_of(2, 0, 30);
  usage_of(3, 0, 40);
  const auto expect_all = [&] {
    EXPECT_EQ(usage->media1[0], 11u);
    EXPECT_EQ(usage->media1[15], 12u);
    EXPECT_EQ(usage->media2, 13u);
    EXPECT_EQ(usage->media3, 14u);
  };
  expect_all();
  // Others have none, but the flag is everybody's.
  KEL_BUF_PARAM param = Param(100, 80, 20);
  for (const auto &[media, index] : {std::pair{1u, 16u}, {0u, 0u}, {4u, 0u}}) {
    usage_of(media, index, 50);
    EXPECT_EQ(usage->high, 0u);
    param.media = media;
    param.index = index;
    buf = KELBuf_Create(&param, nullptr);
    KEL_BUF_DESC desc = {};
    KELBuf_GetWBuf(buf, &desc);
    desc.size = 10;
    KELBuf_FillWBuf(buf, &desc);
    KELBuf_GetWBuf(buf, &desc);
    KELBuf_Destroy(std::exchange(buf, nullptr));
    EXPECT_EQ(usage->high, 1u);
    expect_all();
  }
}

// Frames may be committed at places that the pool did not offer.
TEST(BufferUsage, OfAnAreaOfNothingIsNothing) {
  KEL_BUF_PARAM param = Param(0, 10, 4);
  param.area = malloc(200);
  auto *area = static_cast<uint8_t *>(param.area);
  KEL_BUF *buf = KELBuf_Create(&param, nullptr);
  ASSERT_NE(buf, nullptr);
  KEL_BUF_DESC desc = {area + 100, 5, 10, 0, 0, 0, 0, 0};
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), 0);
  desc.data = area;
  EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), 0);
  EXPECT_EQ(KELBuf_GetWBuf(buf, &desc), 0);
  EXPECT_EQ(desc.data, area + 5);
  EXPECT_EQ(KELBuf_GetUsage()->media1[3], 0u);
  KELBuf_Destroy(buf);
}

// A frame can be committed anywhere, so the figure can be anything, but defined.
TEST(BufferUsage, OfFramesFarApartIsDefined) {
  KEL_BUF_PARAM param = Param(10, 1, 8);
  KEL_BUF *buf = KELBuf_Create(&param, nullptr);
  for (const bool up : {true, false}) {
    KEL_BUF_DESC desc = {};
    desc.size = desc.room = 1;
    desc.data = reinterpret_cast<void *>(up ? 0x10 : 0x6ffffff000000000);
    EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), 0);
    desc.data = reinterpret_cast<void *>(up ? 0x6ffffff000000000 : 0x10);
    EXPECT_EQ(KELBuf_FillWBuf(buf, &desc), 0);
    EXPECT_EQ(KELBuf_GetWBuf(buf, &desc), up ? -28 : 0);
    EXPECT_EQ(KELBuf_DelRBuf(buf, nullptr), 0);
    EXPECT_EQ(KELBuf_DelRBuf(buf, nullptr), 0);
  }
  KELBuf_Destroy(buf);
}

// ---- Reading ----

TEST_F(Buffer, DeliversWhatWasCommitted) {
  Make(1000, 100, 4);
  KEL_BUF_DESC desc = {};
  KELBuf_GetWBuf(buf, &desc);
  desc.size = 7;
  desc.time_stamp = 1000;
  desc.second = 2000;
  desc.value = 3;
  desc.index = 99;
  desc.further = 5;
  KELBuf_FillWBuf(buf, &desc);
  KEL_BUF_DESC got = {};
  EXPECT_EQ(KELBuf_GetRBuf(buf, &got), 0);
  EXPECT_EQ(got.data, area);
  EXPECT_EQ(got.size, 7u);
  EXPECT_EQ(got.room, 7u);
  EXPECT_EQ(got.time_stamp, 1000u);
  EXPECT_EQ(got.second, 2000u);
  EXPECT_EQ(got.value, 3u);
  EXPECT_EQ(got.index, 3u) << "the handle's";
  EXPECT_EQ(got.further, 5u);
  EXPECT_EQ(KELBuf_GetRBuf(buf, &got), 0) << "it stays until deleted";
  TraceCapture trace("kelbuffer:4");
  EXPECT_EQ(KELBuf_DelRBuf(buf, &got), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KELBuf_DelRBuf", Format("buf(%x) size(7)\n", Low32(area)))}));
  EXPECT_EQ(KELBuf_GetRBuf(buf, &got), -25);
  EXPECT_EQ(Delete(), -25);
}

TEST_F(Buffer, AFrameIsReleasedWhenAllHandlesHaveDeletedIt) {
  Make(1000, 100, 2);
  TraceCapture trace("kelbuffer:3");
  const KEL_BUF_PARAM param = {};
  KEL_BUF *reader = KELBuf_Create(&param, buf);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(
      trace.Messages(),
      (std::vector<std::string>{"bufsize(0) minsize(0) number(0) align(0) index(0)\n",
                                Format("duplicate buf(%x)\n", Low32(buf)),
                                Format("dup buffer(%x) media(1) index(3)\n", Low32(reader))}));
  EXPECT_EQ(KELBuf_GetBufRefCnt(buf), 2);
  Write(10);
  EXPECT_EQ(Delete(), 0);
  EXPECT_EQ(Status().filled, 1u);
  EXPECT_EQ(Delete(reader), 0);
  EXPECT_EQ(Status().filled, 0u);
  KELBuf_Destroy(reader);
  EXPECT_EQ(KELBuf_GetBufRefCnt(buf), 1);
  EXPECT_EQ(KELBuf_AddBufRefCnt(buf), 0);
  EXPECT_EQ(KELBuf_GetBufRefCnt(buf), 2);
  // Nothing takes an added count back, so that is done by hand.
  void *shared;
  memcpy(&shared, reinterpret_cast<char *>(buf) + 80, sizeof shared);
  const uint32_t one = 1;
  memcpy(shared, &one, sizeof one);
}

TEST_F(Buffer, ADuplicateWithoutMemoryFails) {
  Make(1000, 100, 2);
  const KEL_BUF_PARAM param = {};
  TraceCapture trace("kelbuffer:1");
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KELBuf_Create(&param, buf), nullptr);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(), (Lines{Error("KELBuf_Create", "newbuf alloc failed\n")}));
  EXPECT_EQ(KELBuf_GetBufRefCnt(buf), 1);
}

TEST_F(Buffer, StatusTellsWhereEachHandleIs) {
  Make(1000, 100, 8);
  Write(10, 500);
  Write(20, 700);
  Delete();
  Write(30, 1100);
  const KEL_BUF_STATUS status = Status();
  EXPECT_EQ(status.bufsize, 1000u);
  EXPECT_EQ(status.minsize, 100u);
  EXPECT_EQ(status.used, 50u);
  EXPECT_EQ(status.filled, 2u);
  EXPECT_EQ(status.write_index, 3u);
  EXPECT_EQ(status.read_index, 1u);
  EXPECT_EQ(status.span, 400u);
  EXPECT_EQ(status.index, 3u);
  EXPECT_EQ(status.media, 1u);
  Delete();
  Delete();
  EXPECT_EQ(Status().span, 0u);
}

TEST_F(Buffer, StatusNeedsAHandleAndAPlace) {
  Make(1000, 100, 4);
  KEL_BUF_STATUS status = {};
  TraceCapture trace("kelbuffer:4");
  EXPECT_EQ(KELBuf_BufStatus(nullptr, &status), -22);
  EXPECT_EQ(KELBuf_BufStatus(buf, nullptr), -22);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(Buffer, DeletingNeedsNoDescription) {
  Make(1000, 100, 4);
  Write(10);
  TraceCapture trace("kelbuffer:4");
  EXPECT_EQ(KELBuf_DelRBuf(buf, nullptr), 0);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KELBuf_DelRBuf", "buf(0) size(0)\n")}));
  EXPECT_EQ(Status().filled, 0u);
}

TEST_F(Buffer, FindsFramesForwardAndBackward) {
  Make(1000, 100, 4);
  for (int i = 0; i < 3; ++i)
    Write(10);
  KEL_BUF_DESC got = {};
  EXPECT_EQ(KELBuf_FindRBuf(buf, area + 20, &got), 0);
  EXPECT_EQ(got.data, area + 20);
  EXPECT_EQ(Status().read_index, 2u);
  EXPECT_EQ(KELBuf_FindRBuf(buf, area, &got), 0);
  EXPECT_EQ(Status().read_index, 0u);
  EXPECT_EQ(KELBuf_FindRBuf(buf, area + 5, &got), -1);
  EXPECT_EQ(Status().read_index, 0u);
}

TEST_F(Buffer, CheckComparesTheData) {
  Make(1000, 100, 4);
  Write(10);
  KEL_BUF_DESC desc = {};
  desc.data = area;
  EXPECT_EQ(KELBuf_CheckBuf(buf, &desc, area), 1);
  TraceCapture trace("kelbuffer:1");
  EXPECT_EQ(KELBuf_CheckBuf(buf, &desc, area + 1), 0);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{
                Format("node->buf (%p) != memdata (%p) Mismatch!  (widx:1, ridx:0)\n",
                       static_cast<void *>(area), static_cast<void *>(area + 1))}));
}

TEST_F(Buffer, TheUserLockWaits3000Milliseconds) {
  Make(1000, 100, 4);
  EXPECT_EQ(KELBuf_LockEnter(buf), 0);
  faults::pthread_mutex_timedlock.Replace([](pthread_mutex_t *, const timespec *) {
    errno = EAGAIN;
    return ETIMEDOUT;
  });
  TraceCapture trace("kelbuffer:1");
  EXPECT_EQ(KELBuf_LockEnter(buf), 0) << "the caller is not told";
  faults::ResetAll();
  EXPECT_EQ(trace.Take(), (Lines{Error("KELBuf_LockEnter",
                                       "lock timeout! (err 11:Resource temporarily "
                                       "unavailable)\n")}));
  EXPECT_EQ(KELBuf_LockLeave(buf), 0);
}

TEST(BufferUserLock, OfNullDoesNothing) {
  TraceCapture trace("kelbuffer:4");
  EXPECT_EQ(KELBuf_LockEnter(nullptr), 0);
  EXPECT_EQ(KELBuf_LockLeave(nullptr), 0);
  EXPECT_EQ(trace.Take(), Lines{});
}

// ---- Threads ----

TEST(BufferThreads, EveryReaderGetsEveryFrameOnce) {
  constexpr int kReaders = 3;
  constexpr uint64_t kFrames = 3000;
  const KEL_BUF_PARAM param = Param(4096, 64, 16);
  KEL_BUF *writer = KELBuf_Create(&param, nullptr);
  std::vector<std::thread> readers;
  std::atomic<uint64_t> done{0};
  std::vector<KEL_BUF *> handles;
  for (int i = 0; i < kReaders; ++i)
    handles.push_back(KELBuf_Create(&param, writer));
  for (KEL_BUF *handle : handles)
    readers.emplace_back([handle, &done] {
      for (uint64_t next = 1; next <= kFrames;) {
        KEL_BUF_DESC desc = {};
        if (KELBuf_GetRBuf(handle, &desc) != 0) {
          std::this_thread::yield();
          continue;
        }
        ASSERT_EQ(desc.time_stamp, next);
        uint64_t content = 0;
        memcpy(&content, desc.data, sizeof content);
        ASSERT_EQ(content, next);
        ASSERT_EQ(KELBuf_DelRBuf(handle, &desc), 0);
        ++next;
        ++done;
      }
    });
  for (uint64_t frame = 1; frame <= kFrames;) {
    // One place stays free: a full ring would read as empty.
    KEL_BUF_STATUS status = {};
    KELBuf_BufStatus(writer, &status);
    KEL_BUF_DESC desc = {};
    if (status.filled >= 15 || KELBuf_GetWBuf(writer, &desc) != 0) {
      std::this_thread::yield();
      continue;
    }
    memcpy(desc.data, &frame, sizeof frame);
    desc.size = 8 + static_cast<uint32_t>(frame % 50);
    desc.time_stamp = frame;
    ASSERT_EQ(KELBuf_FillWBuf(writer, &desc), 0);
    ASSERT_EQ(KELBuf_DelRBuf(writer, &desc), 0);
    ++frame;
  }
  for (std::thread &reader : readers)
    reader.join();
  EXPECT_EQ(done, kReaders * kFrames);
  KEL_BUF_STATUS status = {};
  KELBuf_BufStatus(writer, &status);
  EXPECT_EQ(status.filled, 0u);
  for (KEL_BUF *handle : handles)
    KELBuf_Destroy(handle);
  KELBuf_Destroy(writer);
}

}  // namespace
