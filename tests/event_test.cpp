// Event: a semaphore that starts at 0, under its own name in the traces.

#include "kelcore_event.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "faults.h"
#include "kelcore_time.h"
#include "trace_capture.h"

namespace {

Lines EnterLeave(const std::string &func) {
  return {{"TRACE", "kelevent", "kelcore_event", func, "Enter\n"},
          {"TRACE", "kelevent", "kelcore_event", func, "Leave\n"}};
}

class Event : public testing::Test {
 protected:
  void TearDown() override { KEL_EventDestroy(event); }
  KEL_SEMA *event = KEL_EventCreate(nullptr);
};

TEST(EventCreate, TracesEnterTheSemaphoreAndLeave) {
  TraceCapture trace;
  KEL_SEMA *event = KEL_EventCreate(nullptr);
  ASSERT_NE(event, nullptr);
  Lines lines = trace.Take();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ((Lines{lines[0], lines[2]}), EnterLeave("KEL_EventCreate"));
  EXPECT_EQ(lines[1].module, "kelsema");
  EXPECT_EQ(lines[1].func, "KEL_SemaCreate");
  KEL_EventDestroy(event);
}

TEST(EventCreate, StartsWithoutPendingSends) {
  KEL_SEMA *event = KEL_EventCreate(nullptr);
  int32_t count = -1;
  EXPECT_EQ(KEL_EventStatus(event, &count), 0);
  EXPECT_EQ(count, 0);
  KEL_EventDestroy(event);
}

TEST(EventCreate, ReturnsTheSemaphoresFailure) {
  TraceCapture trace;
  faults::malloc.Fail(nullptr, ENOMEM);
  EXPECT_EQ(KEL_EventCreate(nullptr), nullptr);
  faults::ResetAll();
  EXPECT_EQ(trace.Take("kelevent"), EnterLeave("KEL_EventCreate"));
}

TEST(EventCreate, WithANameIsSharedByName) {
  const std::string name = "/kelcore_event_test_" + std::to_string(getpid());
  KEL_SEMA *one = KEL_EventCreate(name.c_str());
  KEL_SEMA *other = KEL_EventCreate(name.c_str());
  EXPECT_EQ(KEL_EventSend(one), 0);
  EXPECT_EQ(KEL_EventWait(other, 0), 0);
  KEL_EventDestroy(other);
  KEL_EventDestroy(one);
}

TEST(EventDestroy, TracesEnterAndLeave) {
  KEL_SEMA *event = KEL_EventCreate(nullptr);
  TraceCapture trace;
  EXPECT_EQ(KEL_EventDestroy(event), 0);
  EXPECT_EQ(trace.Take(), EnterLeave("KEL_EventDestroy"));
}

TEST(EventDestroy, OfNullReturns0AndTheSemaphoreTraces) {
  TraceCapture trace;
  EXPECT_EQ(KEL_EventDestroy(nullptr), 0);
  Lines lines = trace.Take();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], (TraceLine{"ERROR", "kelsema", "kelcore_sema", "KEL_SemaDestroy",
                                 "invalid sema\n"}));
  EXPECT_EQ((Lines{lines[0], lines[2]}), EnterLeave("KEL_EventDestroy"));
}

TEST_F(Event, SendsAreCountedNeitherLostNorMerged) {
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(KEL_EventSend(event), 0);
  int32_t count = 0;
  EXPECT_EQ(KEL_EventStatus(event, &count), 0);
  EXPECT_EQ(count, 3);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(KEL_EventWait(event, 0), 0);
  EXPECT_EQ(KEL_EventWait(event, 0), -1);
}

TEST_F(Event, AWaitExpiresWithoutASend) {
  const uint64_t before = KEL_GetSystemTick();
  EXPECT_EQ(KEL_EventWait(event, 20), -110);
  const uint64_t waited = KEL_GetSystemTick() - before;
  EXPECT_GE(waited, 18u);
  EXPECT_LT(waited, 60'000u);
}

TEST_F(Event, SendAndWaitAddNoTracesOfTheirOwn) {
  TraceCapture trace;
  EXPECT_EQ(KEL_EventSend(event), 0);
  EXPECT_EQ(KEL_EventWait(event, 0), 0);
  EXPECT_EQ(trace.Take(), Lines{});
  int32_t count = -1;
  EXPECT_EQ(KEL_EventStatus(event, &count), 0);
  EXPECT_EQ(trace.Take(),
            (Lines{{"TRACE", "kelsema", "kelcore_sema", "KEL_SemaStatus", "Enter\n"}}));
}

TEST_F(Event, AnUnboundedWaitEndsWithASend) {
  std::thread sender([this] { KEL_EventSend(event); });
  EXPECT_EQ(KEL_EventWait(event, KEL_WAIT_FOREVER), 0);
  sender.join();
}

TEST_F(Event, AnUnboundedWaitThatIsInterruptedFails) {
  faults::sem_wait.Fail(-1, EINTR);
  EXPECT_EQ(KEL_EventWait(event, KEL_WAIT_FOREVER), -1);
}

TEST_F(Event, NullHandlesFailAsTheSemaphoreDoes) {
  TraceCapture trace;
  int32_t count = 0;
  EXPECT_EQ(KEL_EventWait(nullptr, 0), -22);
  EXPECT_EQ(KEL_EventSend(nullptr), -22);
  EXPECT_EQ(KEL_EventStatus(nullptr, &count), -22);
  EXPECT_EQ(trace.Messages("kelsema", "ERROR"),
            (std::vector<std::string>{"invalid sema\n", "invalid sema\n", "invalid sema\n"}));
}

}  // namespace
