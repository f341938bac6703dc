// Circular buffer: all or nothing, wrapping, failures.

#include "kelcore_circular.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <deque>
#include <random>
#include <string>

#include "alloc_hooks.h"
#include "faults.h"
#include "trace_capture.h"

namespace {

TraceLine Line(const char *level, const char *func, const std::string &message) {
  return {level, "kelcircular", "kelcore_circular", func, message};
}
std::string Shown(const char *format, const void *pointer) {
  char text[200];
  snprintf(text, sizeof text, format, pointer);
  return text;
}

uint32_t FieldOf(const KEL_CIRCULAR *buffer, size_t offset) {
  uint32_t value;
  memcpy(&value, reinterpret_cast<const char *>(buffer) + offset, sizeof value);
  return value;
}
constexpr size_t kWr = 12, kRd = 16, kFill = 20;

class Circular : public testing::Test {
 protected:
  ~Circular() override { KELCircular_Destroy(buffer); }
  int32_t Push(const std::string &text) {
    return KELCircular_Push(buffer, text.data(), static_cast<uint32_t>(text.size()));
  }
  std::string Pop(uint32_t count) {
    std::string text(count, '?');
    return KELCircular_Pop(buffer, text.data(), count) == 0 ? text : "refused";
  }
  KEL_CIRCULAR *buffer = KELCircular_Create(8);
};

TEST(CircularCreate, TakesARecordAndTheSize) {
  AllocHooks hooks;
  TraceCapture trace;
  KEL_CIRCULAR *buffer = KELCircular_Create(50);
  ASSERT_EQ(hooks.adds.size(), 2u);
  EXPECT_EQ(hooks.adds[0].size, 24u);
  EXPECT_EQ(hooks.adds[1].size, 50u);
  EXPECT_EQ(hooks.adds[1].file, "kelcore_circular");
  EXPECT_EQ(FieldOf(buffer, 8), 50u);
  EXPECT_EQ(FieldOf(buffer, kWr) + FieldOf(buffer, kRd) + FieldOf(buffer, kFill), 0u);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KELCircular_Create", "size(50)\n"),
                   Line("DEBUG", "KELCircular_Create",
                        Shown("circular buffer(%p) created. size(50)\n", buffer))}));
  const std::string traced = Shown("circular buffer (%p)\n", buffer);
  const std::string debugged = Shown("circular buffer (%p) size(50)\n", buffer);
  EXPECT_EQ(KELCircular_Destroy(buffer), 0);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KELCircular_Destroy", traced),
                                 Line("DEBUG", "KELCircular_Destroy", debugged)}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(CircularCreate, FailuresTellTheirSizesAndLeaveNothing) {
  AllocHooks hooks;
  TraceCapture trace("kelcircular:1");
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KELCircular_Create(50), nullptr);
  faults::malloc.Fail(nullptr, ENOMEM, 1);
  EXPECT_EQ(KELCircular_Create(50), nullptr);
  faults::ResetAll();
  EXPECT_EQ(trace.Take(),
            (Lines{Line("ERROR", "KELCircular_Create",
                        "out of memory. can not create circular buf handle. size(24)\n"),
                   Line("ERROR", "KELCircular_Create",
                        "out of memory. can not alloc circular buf. size(50)\n")}));
  EXPECT_EQ(hooks.live(), 0);
}

TEST(CircularDestroy, OfNullFails) {
  TraceCapture trace;
  EXPECT_EQ(KELCircular_Destroy(nullptr), -1);
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KELCircular_Destroy", "circular buffer ((nil))\n"),
                   Line("ERROR", "KELCircular_Destroy", "invalid circular buffer handle\n")}));
}

TEST_F(Circular, CanBeEntirelyFull) {
  EXPECT_EQ(Push("abcdefgh"), 0);
  EXPECT_EQ(FieldOf(buffer, kWr), 0u);
  EXPECT_EQ(FieldOf(buffer, kFill), 8u);
  TraceCapture trace;
  EXPECT_EQ(KELCircular_Push(buffer, "i", 1), -1);
  EXPECT_EQ(trace.Take()[1], Line("ERROR", "KELCircular_Push",
                                  "circular buffer overflow cur size(8/8) reqsz(1) bytes\n"));
  EXPECT_EQ(Pop(8), "abcdefgh");
}

TEST_F(Circular, WrapsInBothDirections) {
  EXPECT_EQ(Push("abcdef"), 0);
  EXPECT_EQ(Pop(4), "abcd");
  EXPECT_EQ(Push("ghijk"), 0);
  EXPECT_EQ(FieldOf(buffer, kWr), 3u);
  EXPECT_EQ(Pop(7), "efghijk");
  EXPECT_EQ(FieldOf(buffer, kRd), 3u);
}

TEST_F(Circular, APushThatEndsAtTheEndLeavesTheWriteIndexAt0) {
  Push("abc");
  EXPECT_EQ(Push("defgh"), 0);
  EXPECT_EQ(FieldOf(buffer, kWr), 0u);
  EXPECT_EQ(Pop(8), "abcdefgh");
  EXPECT_EQ(FieldOf(buffer, kRd), 0u);
}

TEST_F(Circular, PopsAllOrNothing) {
  EXPECT_EQ(KELCircular_Pop(buffer, nullptr, 0), 0);
  Push("ab");
  TraceCapture trace;
  char to[4] = "???";
  EXPECT_EQ(KELCircular_Pop(buffer, to, 3), -1);
  EXPECT_STREQ(to, "???");
  EXPECT_EQ(trace.Take(),
            (Lines{Line("TRACE", "KELCircular_Pop",
                        Shown("circular buffer pop (%p) (3) bytes\n", to)),
                   Line("TRACE", "KELCircular_Pop",
                        "circular buffer underflow cur sz(2) need sz(3) bytes\n")}));
  EXPECT_EQ(Pop(2), "ab");
}

TEST_F(Circular, TracesPushes) {
  TraceCapture trace;
  const char *from = "abc";
  KELCircular_Push(buffer, from, 3);
  EXPECT_EQ(trace.Take(), (Lines{Line("TRACE", "KELCircular_Push",
                                      Shown("circular buffer push (%p) (3) bytes\n", from))}));
}

TEST_F(Circular, HugeCountsDoNotWrap) {
  Push("ab");
  EXPECT_EQ(KELCircular_Push(buffer, "x", 0xFFFFFFFF), -1);
  EXPECT_EQ(FieldOf(buffer, kFill), 2u);
}

TEST(CircularEmpty, OfSize0HoldsNothing) {
  KEL_CIRCULAR *buffer = KELCircular_Create(0);
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(KELCircular_Push(buffer, "", 0), 0);
  EXPECT_EQ(KELCircular_Push(buffer, "x", 1), -1);
  char to;
  EXPECT_EQ(KELCircular_Pop(buffer, &to, 0), 0);
  EXPECT_EQ(KELCircular_Pop(buffer, &to, 1), -1);
  KELCircular_Destroy(buffer);
}

TEST_F(Circular, AgreesWithAModel) {
  std::mt19937 random(5);
  std::deque<char> model;
  char next = 0;
  for (int round = 0; round < 20'000; ++round) {
    const uint32_t count = static_cast<uint32_t>(random()) % 9;
    if (random() % 2 == 0) {
      std::string text;
      for (uint32_t i = 0; i < count; ++i)
        text += static_cast<char>(next++);
      const bool fits = model.size() + count <= 8;
      ASSERT_EQ(Push(text), fits ? 0 : -1);
      if (fits)
        model.insert(model.end(), text.begin(), text.end());
    } else if (count <= model.size()) {
      ASSERT_EQ(Pop(count), std::string(model.begin(), model.begin() + count));
      model.erase(model.begin(), model.begin() + count);
    } else {
      ASSERT_EQ(Pop(count), "refused");
    }
    ASSERT_EQ(FieldOf(buffer, kFill), model.size());
  }
}

}  // namespace
