// Start-up, shut-down and error texts.

#include "kelcore_system.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "faults.h"
#include "trace_capture.h"

namespace {

// ---- Error texts

struct CodeText {
  const char *name;
  uint32_t code;
  uint32_t value;
  const char *text;
};
constexpr CodeText kCodes[] = {
    {"OK", KEL_OK, 0x00000000, "OK"},
    {"FAIL", KEL_ERR_FAIL, 0x80000000, "FAIL"},
    {"OUT_OF_MEMORY", KEL_ERR_OUT_OF_MEMORY, 0x80000001, "Out of memory"},
    {"THREAD_CREATE", KEL_ERR_THREAD_CREATE, 0x80000002, "Thread creation failed"},
    {"DISK_FULL", KEL_ERR_DISK_FULL, 0x80000005, "Disk is full"},
    {"NOT_SUPPORTED", KEL_ERR_NOT_SUPPORTED, 0x80000006, "Not supported"},
    {"TIMEOUT", KEL_ERR_TIMEOUT, 0x80000007, "FAIL"},
    {"FILE_OPEN", KEL_ERR_FILE_OPEN, 0x80000010, "No such file or opening failed"},
    {"FILE_CREATE", KEL_ERR_FILE_CREATE, 0x80000011, "File creation failed"},
    {"FILE_READ", KEL_ERR_FILE_READ, 0x80000012, "File read failed"},
    {"FILE_WRITE", KEL_ERR_FILE_WRITE, 0x80000013, "File write failed"},
    {"FILE_SEEK", KEL_ERR_FILE_SEEK, 0x80000014, "File seek failed"},
    {"FILE_FORMAT", KEL_ERR_FILE_FORMAT, 0x80000019, "Not supported format of file"},
    {"STREAM", KEL_ERR_STREAM, 0x8000001a, "Stream error"},
    {"NO_BUFFER", KEL_ERR_NO_BUFFER, 0x80000050, "No buffer"},
    {"BUFFER_SIZE", KEL_ERR_BUFFER_SIZE, 0x80000051, "Invalid buffer size"},
    {"BUFFER_OVERFLOW", KEL_ERR_BUFFER_OVERFLOW, 0x80000052, "Buffer overflow"},
    {"END_OF_DATA", KEL_ERR_END_OF_DATA, 0x80000054, "End of data (file, stream)"},
};

class ErrorCode : public testing::TestWithParam<CodeText> {};

TEST_P(ErrorCode, HasItsValue) {
  EXPECT_EQ(GetParam().code, GetParam().value);
}

TEST_P(ErrorCode, HasItsText) {
  EXPECT_STREQ(KEL_GetErrorStr(GetParam().value), GetParam().text);
}

TEST_P(ErrorCode, TextIsStatic) {
  EXPECT_EQ(KEL_GetErrorStr(GetParam().value), KEL_GetErrorStr(GetParam().value));
}

INSTANTIATE_TEST_SUITE_P(Table, ErrorCode, testing::ValuesIn(kCodes),
                         [](const auto &test) { return std::string(test.param.name); });

// No text is built in a place that the next one overwrites.
TEST(ErrorText, TextsStaySideBySide) {
  std::vector<const char *> texts;
  for (const CodeText &row : kCodes)
    texts.push_back(KEL_GetErrorStr(row.value));
  for (size_t i = 0; i < texts.size(); ++i)
    EXPECT_STREQ(texts[i], kCodes[i].text);
}

TEST(ErrorText, EveryOtherCodeOfTheLibrarysRangeIsFail) {
  std::map<uint32_t, const char *> known;
  for (const CodeText &row : kCodes)
    known[row.value] = row.text;
  for (uint32_t code = 0x80000000; code <= 0x80000400; ++code) {
    const char *text = known.contains(code) ? known[code] : "FAIL";
    EXPECT_STREQ(KEL_GetErrorStr(code), text) << code;
  }
}

TEST(ErrorText, SmallNonZeroCodesAreFail) {
  for (uint32_t code = 1; code <= 0x100; ++code)
    EXPECT_STREQ(KEL_GetErrorStr(code), "FAIL") << code;
}

TEST(ErrorText, CodesAtTheEndsOfTheRangesAreFail) {
  for (uint32_t code : {0x7FFFFFFFu, 0x80000055u, 0xFFFFFFEAu, 0xFFFFFFFFu, 0x90000001u})
    EXPECT_STREQ(KEL_GetErrorStr(code), "FAIL") << code;
}

// ---- The last operating-system error

TEST(LastError, IsErrno) {
  errno = ENOSPC;
  EXPECT_EQ(KEL_GetLastError(), static_cast<uint32_t>(ENOSPC));
}

TEST(LastError, LeavesErrnoAsItWas) {
  errno = ENOSPC;
  (void)KEL_GetLastError();
  EXPECT_EQ(errno, ENOSPC);
}

TEST(LastError, IsZeroWithoutAnError) {
  errno = 0;
  EXPECT_EQ(KEL_GetLastError(), 0u);
}

TEST(LastError, KeepsAllBitsOfErrno) {
  errno = -2;
  EXPECT_EQ(KEL_GetLastError(), 0xFFFFFFFEu);
}

TEST(LastError, BelongsToTheThread) {
  errno = ENOSPC;
  uint32_t of_other = 0;
  std::thread other([&] {
    errno = EPERM;
    of_other = KEL_GetLastError();
  });
  other.join();
  EXPECT_EQ(of_other, static_cast<uint32_t>(EPERM));
  errno = ENOSPC;
  EXPECT_EQ(KEL_GetLastError(), static_cast<uint32_t>(ENOSPC));
}

TEST(LastErrorText, IsTheTextOfErrno) {
  for (int error : {0, ENOENT, ENOSPC, 9999}) {
    const std::string expected = strerror(error);
    errno = error;
    EXPECT_EQ(KEL_GetLastErrorStr(), expected);
  }
}

TEST(LastErrorText, BelongsToTheThread) {
  std::string of_other;
  errno = ENOSPC;
  std::thread other([&] {
    errno = ENOENT;
    of_other = KEL_GetLastErrorStr();
  });
  other.join();
  EXPECT_EQ(of_other, "No such file or directory");
}

// ---- Start-up and shut-down

// What a callback was given, and what had happened by then.
struct CallbackRecord {
  int calls = 0;
  void *pointer = &calls;
  int32_t number = -1;
  std::vector<std::string> before;
};
CallbackRecord seen;

int32_t Note(void *pointer, int32_t number) {
  seen.before = faults::Log();
  ++seen.calls;
  seen.pointer = pointer;
  seen.number = number;
  return -7;
}

class System : public testing::Test {
 protected:
  System() { seen = {}; }
};

using Calls = std::vector<std::string>;

TEST_F(System, InitReadsTheLocalTimeBeforeItSeedsTheGenerator) {
  faults::Record();
  EXPECT_EQ(KEL_SystemInit(nullptr), 0);
  EXPECT_EQ(faults::Log(), (Calls{"time", "localtime", "time", "srand"}));
}

TEST_F(System, InitSeedsTheGeneratorWithTheTimeOfItsOwnReading) {
  time_t now = 1000;
  time_t shown = 0;
  unsigned seed = 0;
  faults::time.Replace([&](time_t *out) {
    EXPECT_EQ(out, nullptr);
    return ++now;
  });
  faults::localtime.Replace([&](const time_t *time) {
    shown = *time;
    return faults::localtime.Real(time);
  });
  faults::srand.Replace([&](unsigned value) { seed = value; });
  KEL_SystemInit(nullptr);
  EXPECT_EQ(shown, 1001);
  EXPECT_EQ(seed, 1002u);
}

TEST_F(System, InitMakesTheRandomSequenceThatOfTheTime) {
  faults::time.Replace([](time_t *) -> time_t { return 4321; });
  KEL_SystemInit(nullptr);
  const int first = rand();
  srand(4321);
  EXPECT_EQ(first, rand());
}

TEST_F(System, InitCallsTheCallbackOnceWithNullAndZero) {
  KEL_SystemInit(Note);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.pointer, nullptr);
  EXPECT_EQ(seen.number, 0);
}

TEST_F(System, InitCallsTheCallbackLast) {
  faults::Record();
  KEL_SystemInit(Note);
  EXPECT_EQ(seen.before, (Calls{"time", "localtime", "time", "srand"}));
  EXPECT_EQ(faults::Log(), seen.before);
}

TEST_F(System, InitIgnoresWhatTheCallbackReturns) {
  EXPECT_EQ(KEL_SystemInit(Note), 0);
}

TEST_F(System, InitTracesNothing) {
  TraceCapture trace;
  KEL_SystemInit(Note);
  EXPECT_EQ(trace.Take(), Lines{});
}

TEST_F(System, UnInitWithoutCallbackDoesNothing) {
  faults::Record();
  EXPECT_EQ(KEL_SystemUnInit(nullptr), 0);
  EXPECT_EQ(faults::Log(), Calls{});
}

TEST_F(System, UnInitCallsTheCallbackOnceWithNullAndZero) {
  faults::Record();
  KEL_SystemUnInit(Note);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.pointer, nullptr);
  EXPECT_EQ(seen.number, 0);
  EXPECT_EQ(faults::Log(), Calls{});
}

TEST_F(System, UnInitIgnoresWhatTheCallbackReturns) {
  EXPECT_EQ(KEL_SystemUnInit(Note), 0);
}

}  // namespace
