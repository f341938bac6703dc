// The trace facility: filter, history, sinks.

#include "kelcore_trace.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <climits>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "faults.h"
#include "new_process.h"
#include "trace_capture.h"

namespace {

using Texts = std::vector<std::string>;

constexpr size_t kLineMax = 4095;
constexpr size_t kBufferBytes = 4096;
constexpr int kHistory = 10;

// What the callback was given: the texts and where they lay.
struct Received {
  std::mutex mutex;
  Texts texts;
  std::vector<const char *> places;
};
Received received;

void Receive(const char *line) {
  std::lock_guard<std::mutex> guard(received.mutex);
  received.texts.emplace_back(line);
  received.places.push_back(line);
}

Texts TakeReceived() {
  std::lock_guard<std::mutex> guard(received.mutex);
  received.places.clear();
  return std::exchange(received.texts, {});
}

void Configure(const char *text) {
  StdoutOf([&] { KEL_TraceSet(text); });
}

// One line from a fixed position.
void Say(const char *module, int32_t level, const std::string &message) {
  KEL_Trace(module, level, "file.c", 42, "func", "%s", message.c_str());
}

void SetTick(uint64_t ms) {
  faults::clock_gettime.Replace([=](clockid_t, timespec *now) {
    now->tv_sec = static_cast<time_t>(ms / 1000);
    now->tv_nsec = static_cast<long>(ms % 1000) * 1'000'000;
    return 0;
  });
}

// A file name of this test alone, removed with the scope.
class TempPath {
 public:
  TempPath() : path_(testing::TempDir() + "keltrace" + std::to_string(getpid())) {}
  ~TempPath() { unlink(path_.c_str()); }
  TempPath(const TempPath &) = delete;
  TempPath &operator=(const TempPath &) = delete;
  const char *c_str() const { return path_.c_str(); }
  std::string Contents() const {
    std::ifstream in(path_, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
  }

 private:
  std::string path_;
};

class Trace : public testing::Test {
 protected:
  Trace() { TakeReceived(); }
  ~Trace() override {
    faults::ResetAll();
    Deinit();
    KEL_TraceSetCB(nullptr, 1);
    Configure("");
  }
  int32_t Init(const char *path) {
    initialised_ = true;
    return KEL_TraceInit(path);
  }
  void Deinit() {
    if (std::exchange(initialised_, false))
      KEL_TraceDeinit();
  }
  // Lines go to the callback alone.
  void Listen(const char *config) {
    Configure(config);
    KEL_TraceSetCB(Receive, 0);
  }

 private:
  bool initialised_ = false;
};

// ---- The state at start

TEST(TraceDeathTest, AtStartNothingIsPrinted) {
  EXPECT_IN_NEW_PROCESS({
    KEL_TraceSetCB(Receive, 1);
    EXPECT_EQ(StdoutOf([] {
                Say("kelqueue", 1, "text\n");
                Say("", 1, "text\n");
                KEL_Traces("text\n");
              }),
              "");
    EXPECT_EQ(TakeReceived(), Texts{});
  });
}

TEST(TraceDeathTest, AtStartLinesAreEchoedToStandardOutput) {
  EXPECT_IN_NEW_PROCESS({
    Configure("kelqueue:2");
    SetTick(1);
    EXPECT_EQ(StdoutOf([] { Say("kelqueue", 2, "text\n"); }),
              "00000000001 INFO :[kelqueue] file.c:42 (func) : text\n");
  });
}

TEST(TraceDeathTest, TheFirstLineGoesIntoTheSecondBuffer) {
  EXPECT_IN_NEW_PROCESS({
    Configure("*:4");
    KEL_TraceSetCB(Receive, 0);
    for (int i = 0; i < kHistory; ++i)
      Say("m", 1, "text\n");
    // The tenth is the first buffer's.
    for (int i = 0; i < kHistory - 1; ++i)
      EXPECT_EQ(received.places[static_cast<size_t>(i)],
                received.places[kHistory - 1] + (i + 1) * static_cast<int>(kBufferBytes));
  });
}

TEST(TraceDeathTest, TracesPrintsNothingUntilAStarEntryWithALevel) {
  EXPECT_IN_NEW_PROCESS({
    for (const char *config : {"kelqueue:4", "*:0", "*:-3", "*x:4", "*:x", "a:1,*:0,b:4"}) {
      Configure(config);
      EXPECT_EQ(StdoutOf([] { KEL_Traces("text\n"); }), "") << config;
    }
    Configure("*:1");
    EXPECT_EQ(StdoutOf([] { KEL_Traces("text\n"); }), "text\n");
  });
}

TEST(TraceDeathTest, AStarEntryAtTheEndOfTheListServesTracesToo) {
  EXPECT_IN_NEW_PROCESS({
    Configure("kelqueue:1,*:3");
    EXPECT_EQ(StdoutOf([] { KEL_Traces("text\n"); }), "text\n");
  });
}

TEST(TraceDeathTest, AStarEntryBeforeOthersServesTracesToo) {
  EXPECT_IN_NEW_PROCESS({
    Configure("*:3,kelqueue:1");
    EXPECT_EQ(StdoutOf([] { KEL_Traces("text\n"); }), "text\n");
  });
}

TEST(TraceDeathTest, AStarBeyondTheTwentiethEntryServesNothing) {
  EXPECT_IN_NEW_PROCESS({
    std::string config;
    for (int i = 0; i < 20; ++i)
      config += "m" + std::to_string(i) + ":1,";
    Configure((config + "*:4").c_str());
    EXPECT_EQ(StdoutOf([] {
                KEL_Traces("text\n");
                Say("other", 1, "text\n");
              }),
              "");
  });
}

// ---- The line

TEST_F(Trace, LineHoldsTickLevelModulePositionAndMessage) {
  Listen("*:4");
  SetTick(12'345);
  KEL_Trace("player", 2, "player.c", -7, "open", "opened %s %d\n", "x", 5);
  EXPECT_EQ(TakeReceived(),
            Texts{"00000012345 INFO :[player] player.c:-7 (open) : opened x 5\n"});
}

TEST_F(Trace, LevelsAreNamedInFiveCharacters) {
  Listen("*:2147483647");
  SetTick(1);
  const std::pair<int32_t, const char *> names[] = {
      {1, "ERROR"}, {2, "INFO "}, {3, "DEBUG"}, {4, "TRACE"}};
  for (const auto &[level, name] : names) {
    Say("m", level, "text\n");
    EXPECT_EQ(TakeReceived(),
              Texts{Format("00000000001 %s:[m] file.c:42 (func) : text\n", name)});
  }
}

TEST_F(Trace, LevelsAboveTraceAreNamedLikeIt) {
  Listen("*:2147483647");
  SetTick(1);
  for (int32_t level : {5, 6, 100, INT_MAX}) {
    Say("m", level, "text\n");
    EXPECT_EQ(TakeReceived(), Texts{"00000000001 TRACE:[m] file.c:42 (func) : text\n"});
  }
}

TEST_F(Trace, TickBeyondElevenDigitsIsPrintedWhole) {
  Listen("*:4");
  SetTick(123'456'789'012);
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{"123456789012 ERROR:[m] file.c:42 (func) : text\n"});
}

TEST_F(Trace, NullModuleIsPrintedAsNone) {
  Listen("*:4");
  SetTick(1);
  Say(nullptr, 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{"00000000001 ERROR:[none] file.c:42 (func) : text\n"});
}

TEST_F(Trace, NoLineEndIsAdded) {
  Listen("*:4");
  SetTick(1);
  Say("m", 1, "text");
  EXPECT_EQ(TakeReceived(), Texts{"00000000001 ERROR:[m] file.c:42 (func) : text"});
}

TEST_F(Trace, LongLineIsCutAtItsMaximum) {
  Listen("*:4");
  SetTick(1);
  Say("m", 1, std::string(2 * kBufferBytes, 'x'));
  std::string expected = "00000000001 ERROR:[m] file.c:42 (func) : ";
  expected.append(kLineMax - expected.size(), 'x');
  EXPECT_EQ(TakeReceived(), Texts{expected});
}

TEST_F(Trace, LineOfTheMaximumLengthIsWhole) {
  Listen("*:4");
  SetTick(1);
  const std::string prefix = "00000000001 ERROR:[m] file.c:42 (func) : ";
  const std::string message = std::string(kLineMax - prefix.size() - 1, 'x') + "\n";
  Say("m", 1, message);
  EXPECT_EQ(TakeReceived(), Texts{prefix + message});
}

// The prefix is cut, or leaves room for part of the message only.
TEST_F(Trace, PrefixThatFillsTheLineLeavesNoRoomForTheMessage) {
  Listen("*:4");
  SetTick(1);
  const std::string start = "00000000001 ERROR:[m] file.c:42 (";
  const std::string end = ") : ";
  for (size_t prefix : {kLineMax - 2, kLineMax - 1, kLineMax, kLineMax + 1, kLineMax + 2,
                        kLineMax + 3, 2 * kBufferBytes}) {
    const std::string func(prefix - start.size() - end.size(), 'f');
    KEL_Trace("m", 1, "file.c", 42, func.c_str(), "MESSAGE\n");
    EXPECT_EQ(TakeReceived(), Texts{(start + func + end + "MESSAGE\n").substr(0, kLineMax)})
        << prefix;
  }
}

// The line before the kept one in the ring is the last of those that follow it.
TEST_F(Trace, PositionsThatAreNotKnownAreShownAsPrintfShowsThem) {
  Listen("*:4");
  SetTick(1);
  KEL_Trace("m", 1, nullptr, 0, nullptr, "x\n");
  KEL_Trace("m", 1, "f", -42, "g", "x\n");
  KEL_Trace("m", 1, "f", INT_MIN, "g", "x\n");
  EXPECT_EQ(TakeReceived(), (Texts{"00000000001 ERROR:[m] (null):0 ((null)) : x\n",
                                   "00000000001 ERROR:[m] f:-42 (g) : x\n",
                                   "00000000001 ERROR:[m] f:-2147483648 (g) : x\n"}));
}

TEST_F(Trace, CutLineDoesNotReachIntoTheNextBuffer) {
  SetTick(1);
  const size_t rest = strlen("00000000001 ERROR:[m] file.c:42 () : ");
  for (size_t prefix : {kLineMax, kBufferBytes, kBufferBytes + 1, 2 * kBufferBytes}) {
    const std::string func(prefix - rest, 'f');
    TakeReceived();
    Listen("*:4");
    Say("m", 1, "kept\n");
    const char *kept = received.places[0];
    for (int i = 1; i < kHistory; ++i)
      KEL_Trace("m", 1, "file.c", 42, func.c_str(), "%s", func.c_str());
    EXPECT_STREQ(kept, "00000000001 ERROR:[m] file.c:42 (func) : kept\n") << prefix;
  }
}

// ---- Who may print

struct FilterRow {
  const char *config;
  const char *module;
  int32_t level;
  bool printed;
};
const FilterRow kFilters[] = {
    {"", "kelqueue", 1, false},
    {"kelqueue:2", "kelqueue", 1, true},
    {"kelqueue:2", "kelqueue", 2, true},
    {"kelqueue:2", "kelqueue", 3, false},
    {"kelqueue:2", "kelmsg", 1, false},
    {"kelqueue:2", "kelqueu", 1, false},
    {"kelqueue:2", "kelqueues", 1, false},
    {"kelqueue:2", "KELQUEUE", 1, false},
    {"kelqueue:2", "", 1, false},
    {"kelqueue:1,kelmsg:3", "kelqueue", 1, true},
    {"kelqueue:1,kelmsg:3", "kelqueue", 2, false},
    {"kelqueue:1,kelmsg:3", "kelmsg", 3, true},
    {"kelqueue:1,kelmsg:3", "kelmsg", 4, false},
    // The first entry of a name decides.
    {"kelqueue:1,kelqueue:4", "kelqueue", 2, false},
    {"kelqueue:4,kelqueue:1", "kelqueue", 4, true},
    {"*:4", "kelqueue", 4, true},
    {"*:4", "", 4, true},
    {"*:3", "any", 3, true},
    {"*:3", "any", 4, false},
    // A star overrides what comes after it ...
    {"*:4,kelqueue:1", "kelqueue", 4, true},
    {"*:1,kelqueue:4", "kelqueue", 2, false},
    {"*:0,kelqueue:4", "kelqueue", 1, false},
    {"*:-1,kelqueue:4", "kelqueue", 1, false},
    // ... and serves those that were not named before it.
    {"kelqueue:1,*:3", "kelqueue", 1, true},
    {"kelqueue:1,*:3", "kelqueue", 2, false},
    {"kelqueue:1,*:3", "other", 3, true},
    {"kelqueue:1,*:3", "other", 4, false},
    {"kelqueue:0", "kelqueue", 1, false},
    {"kelqueue:-5", "kelqueue", 1, false},
    {"*x:4", "kelqueue", 1, false},
    // A null module is one called "none".
    {"*:1", nullptr, 1, true},
    {"none:1", nullptr, 1, true},
    {"none:1,*:4", nullptr, 2, false},
    {"kelqueue:4", nullptr, 1, false},
    // Level 0 and below are never printed, whatever the table says.
    {"*:4", "kelqueue", 0, false},
    {"*:4", "kelqueue", -1, false},
    {"*:4", "kelqueue", INT_MIN, false},
    {"kelqueue:0", "kelqueue", 0, false},
    {"kelqueue:-5", "kelqueue", -5, false},
    {"kelqueue:4", "kelqueue", 5, false},
    {"kelqueue:5", "kelqueue", 5, true},
};

TEST_F(Trace, TableDecidesWhoPrints) {
  for (const FilterRow &row : kFilters) {
    Listen(row.config);
    Say(row.module, row.level, "text\n");
    EXPECT_EQ(!TakeReceived().empty(), row.printed)
        << row.config << " " << (row.module != nullptr ? row.module : "(null)") << " "
        << row.level;
  }
}

TEST_F(Trace, EntryWithoutANameServesModulesWithoutOne) {
  Listen(":2");
  Say("", 2, "text\n");
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

TEST_F(Trace, GlobalLevelPlaysNoPartInTheFilter) {
  Listen("*:4");
  Listen("kelqueue:1");
  Say("kelqueue", 2, "text\n");
  Say("other", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
}

// ---- KEL_TraceSet

TEST_F(Trace, SetPrintsItsTextUnderAFixedLineNumber) {
  SetTick(12'345);
  EXPECT_EQ(StdoutOf([] { KEL_TraceSet("no pairs"); }),
            "00012345 kelcore_trace:211 (KEL_TraceSet) : no pairs\n");
}

TEST_F(Trace, SetPrintsTheLowHalfOfTheTick) {
  SetTick(0x100000000 + 77);
  EXPECT_EQ(StdoutOf([] { KEL_TraceSet(""); }),
            "00000077 kelcore_trace:211 (KEL_TraceSet) : \n");
  SetTick(0xFFFFFFFF);
  EXPECT_EQ(StdoutOf([] { KEL_TraceSet(""); }),
            "4294967295 kelcore_trace:211 (KEL_TraceSet) : \n");
}

TEST_F(Trace, SetPrintsAlsoWhenLinesAreNotEchoed) {
  KEL_TraceSetCB(Receive, 0);
  SetTick(1);
  EXPECT_EQ(StdoutOf([] { KEL_TraceSet("*:4"); }),
            "00000001 kelcore_trace:211 (KEL_TraceSet) : *:4\nModule:* Level:4\n");
  EXPECT_EQ(TakeReceived(), Texts{});
}

TEST_F(Trace, SetOfNullPrintsNothingAndKeepsTheTable) {
  Listen("kelqueue:2");
  EXPECT_EQ(StdoutOf([] { KEL_TraceSet(nullptr); }), "");
  Say("kelqueue", 2, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

TEST_F(Trace, SetReplacesTheTableWhole) {
  Listen("a:4,b:4,c:4");
  Listen("d:1");
  for (const char *module : {"a", "b", "c"})
    Say(module, 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
  Say("d", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

TEST_F(Trace, SetOfAnEmptyTextEmptiesTheTable) {
  Listen("*:4");
  Configure("");
  Say("a", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
}

TEST_F(Trace, SetCanRaiseTheLevelAgain) {
  Listen("a:1");
  Listen("a:4");
  Say("a", 4, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

std::string Repeat(char character, size_t times) {
  return std::string(times, character);
}

struct ParseRow {
  const char *name;
  std::string config;
  std::string printed;  // after the line with the text
};
const ParseRow kParses[] = {
    {"OnePair", "kelqueue:2", "Module:kelqueue Level:2\n"},
    {"SeveralPairs", "a:1,b:2,c:3", "Module:a Level:1\nModule:b Level:2\nModule:c Level:3\n"},
    {"EmptyText", "", ""},
    {"NoColonInTheLast", "a:1,b", "Module:a Level:1\n"},
    {"NoColonInTheOnly", "a", ""},
    {"NoColonAtTheStart", "a,b:2", "Module:b Level:2\n"},
    {"NoColonInTheMiddle", "a:1,b,c:3", "Module:a Level:1\nModule:c Level:3\n"},
    {"EmptySegments", ",,a:1,,", "Module:a Level:1\n"},
    {"EmptyName", ":2", "Module: Level:2\n"},
    {"EmptyNameBeforeAComma", ":2,a:1", "Module: Level:2\nModule:a Level:1\n"},
    {"TrailingComma", "a:1,", "Module:a Level:1\n"},
    // An earlier, longer segment does not show through a shorter one.
    {"ShorterAfterLonger", "kelqueue:123,a:4,b:5",
     "Module:kelqueue Level:123\nModule:a Level:4\nModule:b Level:5\n"},
    {"ShorterWithoutColonAfterLonger", "kelqueue:123,ab,b:5",
     "Module:kelqueue Level:123\nModule:b Level:5\n"},
    {"ShorterLastAfterLonger", "kelqueue:123,a:4",
     "Module:kelqueue Level:123\nModule:a Level:4\n"},
    {"ShorterLastWithoutLevelAfterLonger",
     "kelqueue:123,a:", "Module:kelqueue Level:123\nModule:a Level:0\n"},
    // The level is a decimal number at the start of what follows the first colon.
    {"NegativeLevel", "kelqueue:-5", "Module:kelqueue Level:-5\n"},
    {"NegativeLevelBeforeAComma", "a:-5,b:1", "Module:a Level:-5\nModule:b Level:1\n"},
    {"LevelWithSign", "a:+2", "Module:a Level:2\n"},
    {"LevelWithBlanks", "a:  3", "Module:a Level:3\n"},
    {"LevelWithRest", "a:3x", "Module:a Level:3\n"},
    {"LevelWithoutDigits", "a:x", "Module:a Level:0\n"},
    {"LevelMissing", "a:,b:", "Module:a Level:0\nModule:b Level:0\n"},
    {"LevelNotHexadecimal", "a:0x4", "Module:a Level:0\n"},
    {"LevelNotOctal", "a:010", "Module:a Level:10\n"},
    // A level keeps the low half of its number; one beyond all numbers is the
    // largest one, whose low half is -1.
    {"LevelBeyond32Bits", "a:4294967298,b:1", "Module:a Level:2\nModule:b Level:1\n"},
    {"LevelBeyondAllNumbers", "a:99999999999999999999", "Module:a Level:-1\n"},
    {"StarBeyondAllNumbersReadsOn", "*:99999999999999999999,b:4",
     "Module:* Level:-1\nModule:b Level:4\n"},
    {"SecondColon", "a:b:3,c:2:1", "Module:a Level:0\nModule:c Level:2\n"},
    {"BlanksBelongToTheName", " a :1", "Module: a  Level:1\n"},
    // A star with a level ends the reading, one without does not.
    {"StarEndsTheReading", "a:1,*:3,b:4", "Module:a Level:1\nModule:* Level:3\n"},
    {"StarLast", "a:1,*:3", "Module:a Level:1\nModule:* Level:3\n"},
    {"StarOfZeroReadsOn", "*:0,b:4", "Module:* Level:0\nModule:b Level:4\n"},
    {"StarBelowZeroReadsOn", "*:-2,b:4", "Module:* Level:-2\nModule:b Level:4\n"},
    // A name is cut to 29 characters; the last one only if it has more than 31.
    {"NameOf29", Repeat('n', 29) + ":1,a:1",
     "Module:" + Repeat('n', 29) + " Level:1\nModule:a Level:1\n"},
    {"NameOf30", Repeat('n', 30) + ":1,a:1",
     "Module:" + Repeat('n', 29) + " Level:1\nModule:a Level:1\n"},
    {"NameOf100", Repeat('n', 100) + ":1,a:1",
     "Module:" + Repeat('n', 29) + " Level:1\nModule:a Level:1\n"},
    {"LastNameOf30", Repeat('n', 30) + ":1", "Module:" + Repeat('n', 30) + " Level:1\n"},
    {"LastNameOf31", Repeat('n', 31) + ":1", "Module:" + Repeat('n', 31) + " Level:1\n"},
    {"LastNameOf32", Repeat('n', 32) + ":1", "Module:" + Repeat('n', 29) + " Level:1\n"},
    {"LastNameOf100", Repeat('n', 100) + ":1", "Module:" + Repeat('n', 29) + " Level:1\n"},
    // Nothing beyond the 127th character of a segment is read.
    {"SegmentOf127", "a:" + Repeat('0', 124) + "4,b:1", "Module:a Level:4\nModule:b Level:1\n"},
    {"SegmentOf128", "a:" + Repeat('0', 124) + "45,b:1",
     "Module:a Level:4\nModule:b Level:1\n"},
    {"SegmentOf300", "a:" + Repeat('0', 297) + "4,b:1", "Module:a Level:0\nModule:b Level:1\n"},
    {"ColonAt127", Repeat('n', 126) + ":4,b:1",
     "Module:" + Repeat('n', 29) + " Level:0\nModule:b Level:1\n"},
    {"ColonAt128", Repeat('n', 127) + ":4,b:1", "Module:b Level:1\n"},
    {"LastSegmentOf127", "a:" + Repeat('0', 124) + "4", "Module:a Level:4\n"},
    {"LastSegmentOf128", "a:" + Repeat('0', 124) + "45", "Module:a Level:4\n"},
    {"LastSegmentOf300", "a:" + Repeat('0', 297) + "4", "Module:a Level:0\n"},
    {"LastColonAt128", "a:1," + Repeat('n', 127) + ":4", "Module:a Level:1\n"},
};

class TraceParse : public Trace, public testing::WithParamInterface<ParseRow> {};

TEST_P(TraceParse, PrintsEachEntry) {
  SetTick(1);
  const std::string &config = GetParam().config;
  EXPECT_EQ(
      StdoutOf([&] { KEL_TraceSet(config.c_str()); }),
      "00000001 kelcore_trace:211 (KEL_TraceSet) : " + config + "\n" + GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(Table, TraceParse, testing::ValuesIn(kParses),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_F(Trace, CutNamesMatchAsStored) {
  Listen((Repeat('n', 30) + ":1," + Repeat('m', 31) + ":1").c_str());
  Say(Repeat('n', 29).c_str(), 1, "text\n");
  Say(Repeat('m', 31).c_str(), 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 2u);
  Say(Repeat('n', 30).c_str(), 1, "text\n");
  Say(Repeat('m', 29).c_str(), 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
}

TEST_F(Trace, LevelsAreFilteredByTheLowHalfOfTheirNumber) {
  Listen("a:4294967298,b:99999999999999999999");
  Say("a", 2, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
  Say("a", 3, "text\n");
  Say("b", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
}

TEST_F(Trace, SegmentWithoutColonMakesNoEntry) {
  Listen("kelqueue:4,ab,b:2");
  Say("ab", 1, "text\n");
  Say("abqueue", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
  Say("b", 2, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

TEST_F(Trace, TwentyEntriesAreKept) {
  std::string config;
  std::string printed;
  for (int i = 1; i <= 22; ++i) {
    config += Format("%sm%d:1", i == 1 ? "" : ",", i);
    if (i <= 20)
      printed += Format("Module:m%d Level:1\n", i);
  }
  SetTick(1);
  EXPECT_EQ(StdoutOf([&] { KEL_TraceSet(config.c_str()); }),
            "00000001 kelcore_trace:211 (KEL_TraceSet) : " + config + "\n" + printed);
  KEL_TraceSetCB(Receive, 0);
  Say("m20", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
  Say("m21", 1, "text\n");
  Say("m22", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{});
}

TEST_F(Trace, TheTwentiethEntryMayBeTheLast) {
  std::string config;
  for (int i = 1; i <= 20; ++i)
    config += Format("%sm%d:1", i == 1 ? "" : ",", i);
  Listen(config.c_str());
  Say("m20", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

TEST_F(Trace, SetTakesNoLock) {
  Init(nullptr);
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  Configure("*:4,a:1");
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
}

// ---- Standard output and the callback

TEST_F(Trace, ErrorLinesAreRedOnStandardOutput) {
  Configure("*:4");
  SetTick(1);
  EXPECT_EQ(StdoutOf([] { Say("m", 1, "text\n"); }),
            "\033[31m00000000001 ERROR:[m] file.c:42 (func) : text\n\033[0m");
}

TEST_F(Trace, OtherLinesArePlainOnStandardOutput) {
  Configure("*:5");
  SetTick(1);
  for (const auto &[level, name] : {std::pair{2, "INFO "}, std::pair{3, "DEBUG"},
                                    std::pair{4, "TRACE"}, std::pair{5, "TRACE"}})
    EXPECT_EQ(StdoutOf([&] { Say("m", level, "text\n"); }),
              Format("00000000001 %s:[m] file.c:42 (func) : text\n", name));
}

TEST_F(Trace, PercentSignsInALineAreNotFormatsAgain) {
  Configure("*:4");
  SetTick(1);
  EXPECT_EQ(StdoutOf([] { KEL_Trace("m", 2, "%s", 42, "%n", "100%%s\n"); }),
            "00000000001 INFO :[m] %s:42 (%n) : 100%s\n");
}

TEST_F(Trace, CallbackGetsErrorLinesWithoutColour) {
  Listen("*:4");
  SetTick(1);
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived(), Texts{"00000000001 ERROR:[m] file.c:42 (func) : text\n"});
}

TEST_F(Trace, EchoFlagDecidesAboutStandardOutput) {
  Configure("*:4");
  for (const auto &[echo, echoed] :
       {std::pair{0, false}, std::pair{1, true}, std::pair{0, false}, std::pair{128, true}}) {
    KEL_TraceSetCB(Receive, static_cast<uint8_t>(echo));
    EXPECT_EQ(!StdoutOf([] { Say("m", 2, "text\n"); }).empty(), echoed) << echo;
    EXPECT_EQ(TakeReceived().size(), 1u);
  }
}

TEST_F(Trace, CallbackCanBeTakenAway) {
  Listen("*:4");
  KEL_TraceSetCB(nullptr, 0);
  EXPECT_EQ(StdoutOf([] { Say("m", 1, "text\n"); }), "");
  EXPECT_EQ(TakeReceived(), Texts{});
}

TEST_F(Trace, CallbackComesAfterStandardOutputAndFile) {
  const TempPath path;
  Init(path.c_str());
  Configure("*:4");
  static int file_writes;
  file_writes = 0;
  faults::fputs.Replace([](const char *text, FILE *file) {
    if (file != stdout)
      ++file_writes;
    return faults::fputs.Real(text, file);
  });
  static int writes_at_callback;
  writes_at_callback = -1;
  KEL_TraceSetCB(
      [](const char *) {
        writes_at_callback = file_writes;
        fputs("<callback>", stdout);
      },
      1);
  SetTick(1);
  EXPECT_EQ(StdoutOf([] { Say("m", 2, "text\n"); }),
            "00000000001 INFO :[m] file.c:42 (func) : text\n<callback>");
  EXPECT_EQ(writes_at_callback, 1);
}

std::thread::id callback_thread;

TEST_F(Trace, CallbackRunsOnTheTracingThread) {
  Configure("*:4");
  KEL_TraceSetCB([](const char *) { callback_thread = std::this_thread::get_id(); }, 0);
  std::thread::id own;
  std::thread other([&] {
    own = std::this_thread::get_id();
    Say("m", 1, "text\n");
  });
  other.join();
  EXPECT_EQ(callback_thread, own);
}

TEST_F(Trace, ColorDoesNothing) {
  Listen("*:4");
  EXPECT_EQ(StdoutOf([] { KEL_TraceColor(); }), "");
  EXPECT_EQ(TakeReceived(), Texts{});
}

// ---- History

TEST_F(Trace, TenBuffersFollowOneAnother) {
  Listen("*:4");
  for (int i = 0; i < 3 * kHistory; ++i)
    Say("m", 1, "text\n");
  const std::vector<const char *> &places = received.places;
  const std::set<const char *> different(places.begin(), places.end());
  EXPECT_EQ(different.size(), static_cast<size_t>(kHistory));
  EXPECT_EQ(*different.rbegin() - *different.begin(),
            (kHistory - 1) * static_cast<ptrdiff_t>(kBufferBytes));
  for (size_t i = kHistory; i < places.size(); ++i)
    EXPECT_EQ(places[i], places[i - kHistory]) << i;
}

TEST_F(Trace, TextStaysUntilTenFurtherLines) {
  Listen("*:4");
  SetTick(1);
  const std::string prefix = "00000000001 ERROR:[m] file.c:42 (func) : ";
  Say("m", 1, "kept\n");
  const char *place = received.places[0];
  for (int i = 0; i < kHistory - 1; ++i)
    Say("m", 1, "other\n");
  EXPECT_EQ(place, prefix + "kept\n");
  Say("m", 1, "last\n");
  EXPECT_EQ(place, prefix + "last\n");
}

TEST_F(Trace, FilteredLinesUseUpNoBuffer) {
  Listen("m:2");
  Say("m", 2, "text\n");
  for (int i = 0; i < 7; ++i) {
    Say("m", 3, "text\n");
    Say("other", 1, "text\n");
    Say("m", 0, "text\n");
  }
  Say("m", 2, "text\n");
  const ptrdiff_t step = received.places[1] - received.places[0];
  EXPECT_TRUE(step == static_cast<ptrdiff_t>(kBufferBytes) ||
              step == -(kHistory - 1) * static_cast<ptrdiff_t>(kBufferBytes))
      << step;
}

TEST_F(Trace, AllocatesNothing) {
  Init(nullptr);
  Listen("*:4");
  KEL_TraceSetCB(nullptr, 0);
  faults::Record();
  Say("m", 1, "text\n");
  Say("m", 0, "text\n");
  for (const std::string &call : faults::Log())
    EXPECT_TRUE(call == "pthread_mutex_trylock" || call == "clock_gettime") << call;
}

// ---- errno

void SpoilErrno(const char *) {
  errno = EDOM;
}

class TraceErrno : public Trace {
 protected:
  // Traces once and expects errno to be what it was.
  static void ExpectKept(const char *module, int32_t level) {
    errno = 1234;
    Say(module, level, "text\n");
    EXPECT_EQ(errno, 1234);
  }
};

TEST_F(TraceErrno, SurvivesAPrintedLine) {
  Init(nullptr);
  Configure("*:4");
  // Every clock reading and every write to standard output spoils it.
  faults::clock_gettime.Fail(0, EDOM);
  faults::pthread_mutex_trylock.Replace([](pthread_mutex_t *mutex) {
    errno = EDOM;
    return faults::pthread_mutex_trylock.Real(mutex);
  });
  StdoutOf([] { ExpectKept("m", 1); });
  StdoutOf([] { ExpectKept("m", 2); });
}

TEST_F(TraceErrno, SurvivesAFilteredLine) {
  Init(nullptr);
  Configure("m:2,other:4");
  faults::pthread_mutex_trylock.Replace([](pthread_mutex_t *mutex) {
    errno = EDOM;
    return faults::pthread_mutex_trylock.Real(mutex);
  });
  ExpectKept("m", 3);
  ExpectKept("absent", 1);
  ExpectKept("m", 9);
  ExpectKept("m", 0);
}

TEST_F(TraceErrno, SurvivesTheCallback) {
  Configure("*:4");
  KEL_TraceSetCB(SpoilErrno, 0);
  ExpectKept("m", 1);
}

TEST_F(TraceErrno, SurvivesAFailingTraceFile) {
  const TempPath path;
  Init(path.c_str());
  Listen("*:4");
  faults::fputs.Fail(EOF, ENOSPC);
  ExpectKept("m", 1);
  EXPECT_EQ(TakeReceived().size(), 2u);
}

TEST_F(TraceErrno, SurvivesAFailingLock) {
  Init(nullptr);
  Listen("*:4");
  faults::pthread_mutex_trylock.Fail(EBUSY, EDOM);
  faults::pthread_mutex_timedlock.Fail(EINVAL, EDOM);
  ExpectKept("m", 1);
}

TEST_F(TraceErrno, SurvivesBareText) {
  Configure("*:1");
  // Standard output whose buffer cannot be written.
  const std::string printed = StdoutOf([] {
    fflush(stdout);
    const int kept = dup(STDOUT_FILENO);
    close(STDOUT_FILENO);
    errno = 1234;
    KEL_Traces("%s", std::string(1 << 21, 'x').c_str());
    EXPECT_EQ(errno, 1234);
    dup2(kept, STDOUT_FILENO);
    close(kept);
    clearerr(stdout);
  });
}

TEST_F(TraceErrno, IsTheCallersInTheMessage) {
  Init(nullptr);
  Listen("*:4");
  faults::clock_gettime.Fail(0, EDOM);
  errno = ENOENT;
  const char *format = "%m, %s\n";
  KEL_Trace("m", 1, "file.c", 42, "func", format, "text");
  EXPECT_NE(TakeReceived()[0].find(" : No such file or directory, text\n"), std::string::npos);
}

// ---- KEL_Traces

TEST_F(Trace, BareTextIsFormattedToStandardOutputAlone) {
  const TempPath path;
  Init(path.c_str());
  Listen("*:1");
  faults::Record();
  EXPECT_EQ(StdoutOf([] { KEL_Traces("bare %d %s", 5, "text\n"); }), "bare 5 text\n");
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
  EXPECT_EQ(TakeReceived(), Texts{});
  Deinit();
  EXPECT_EQ(path.Contents(), "");
}

TEST_F(Trace, BareTextUsesUpNoBuffer) {
  Listen("*:1");
  Say("m", 1, "text\n");
  StdoutOf([] {
    for (int i = 0; i < 5; ++i)
      KEL_Traces("bare\n");
  });
  Say("m", 1, "text\n");
  const ptrdiff_t step = received.places[1] - received.places[0];
  EXPECT_TRUE(step == static_cast<ptrdiff_t>(kBufferBytes) ||
              step == -(kHistory - 1) * static_cast<ptrdiff_t>(kBufferBytes))
      << step;
}

TEST_F(Trace, BareTextIsPrintedAlsoWithoutEcho) {
  Configure("*:1");
  KEL_TraceSetCB(nullptr, 0);
  EXPECT_EQ(StdoutOf([] { KEL_Traces("bare\n"); }), "bare\n");
}

TEST_F(Trace, LevelOfBareTextOutlivesTheTable) {
  Configure("*:1");
  for (const char *config : {"kelqueue:1", "*:0", "*:-1", ""}) {
    Configure(config);
    EXPECT_EQ(StdoutOf([] { KEL_Traces("bare\n"); }), "bare\n") << config;
  }
}

// ---- KEL_TraceInit

TEST_F(Trace, InitMakesLockFileAndBufferingInThisOrder) {
  const TempPath path;
  faults::Record();
  EXPECT_EQ(Init(path.c_str()), 0);
  Texts calls;
  for (const std::string &call : faults::Log())
    if (call == "pthread_mutex_init" || call == "fopen64" || call == "setvbuf")
      calls.push_back(call);
  EXPECT_EQ(calls, (Texts{"pthread_mutex_init", "fopen64", "setvbuf"}));
}

TEST_F(Trace, InitMakesStandardOutputLineBuffered) {
  FILE *file = nullptr;
  char *buffer = nullptr;
  int mode = -1;
  size_t size = 0;
  faults::setvbuf.Replace([&](FILE *f, char *b, int m, size_t s) {
    file = f;
    buffer = b;
    mode = m;
    size = s;
    return 0;
  });
  EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(Init(nullptr), 0); }), "");
  EXPECT_EQ(faults::setvbuf.Count(), 1);
  EXPECT_EQ(file, stdout);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(mode, _IOLBF);
  EXPECT_EQ(size, 0x100000u);
}

TEST_F(Trace, InitReportsThatBufferingCouldNotBeSet) {
  for (int result : {-1, 7}) {
    faults::setvbuf.Fail(result, 0);
    EXPECT_EQ(StdoutOf([&] { EXPECT_NE(Init(nullptr), 0); }),
              "Incorrect type or size of buffer\n");
    Deinit();
  }
}

TEST_F(Trace, InitWithoutPathOpensNoFile) {
  faults::fopen64.Fail(nullptr, EIO);
  EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(Init(nullptr), 0); }), "");
  EXPECT_EQ(faults::fopen64.Count(), 0);
}

TEST_F(Trace, InitOpensTheFileForTextWriting) {
  const TempPath path;
  std::ofstream(path.c_str()) << "old contents";
  std::string mode;
  faults::fopen64.Replace([&](const char *name, const char *how) {
    EXPECT_STREQ(name, path.c_str());
    mode = how;
    return faults::fopen64.Real(name, how);
  });
  Init(path.c_str());
  EXPECT_EQ(mode, "wt");
  EXPECT_EQ(path.Contents(), "");
}

// The file is open when file access tells so, but tracing does not know it yet.
TEST_F(Trace, WhatTheOpeningTracesGoesToTheOtherSinks) {
  const TempPath path;
  TraceCapture trace;
  Init(path.c_str());
  const Lines lines = trace.Take();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].func, "KEL_FileOpen");
  EXPECT_EQ(lines[0].level, "DEBUG");
  Deinit();
  EXPECT_EQ(path.Contents(), "");
  Init("/nonexistent/kel.log");
  const Lines failure = trace.Take();
  ASSERT_EQ(failure.size(), 1u);
  EXPECT_EQ(failure[0].func, "KEL_FileOpen");
  EXPECT_EQ(failure[0].level, "ERROR");
}

TEST_F(Trace, InitGoesOnWithoutAFileThatCannotBeOpened) {
  Configure("m:4");
  faults::setvbuf.Replace([](FILE *, char *, int, size_t) { return 0; });
  EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(Init("/nonexistent/kel.log"), 0); }),
            "/nonexistent/kel.log trace file open failed\n");
  EXPECT_EQ(faults::setvbuf.Count(), 1);
  Listen("m:4");
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

TEST_F(Trace, InitGoesOnWithoutALockThatCannotBeMade) {
  faults::malloc.Fail(nullptr, ENOMEM);
  const int32_t result = Init(nullptr);
  faults::malloc.Reset();
  EXPECT_EQ(result, 0);
  Listen("*:4");
  faults::Record();
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
}

TEST_F(Trace, TableSetBeforeInitStays) {
  Listen("*:4");
  Init(nullptr);
  Say("m", 4, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
}

// ---- The lock

TEST_F(Trace, BeforeInitTracingTakesNoLock) {
  Listen("*:4");
  faults::Record();
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
}

TEST_F(Trace, LevelZeroTakesNoLock) {
  Init(nullptr);
  Listen("*:4");
  faults::Record();
  Say("m", 0, "text\n");
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
}

// The lock as the facility asked for it.
pthread_mutex_t *asked_lock;

bool AskedLockIsHeld() {
  const int result = faults::pthread_mutex_trylock.Real(asked_lock);
  if (result == 0)
    pthread_mutex_unlock(asked_lock);
  return result == EBUSY;
}

class TraceLock : public Trace {
 protected:
  TraceLock() {
    asked_lock = nullptr;
    Init(nullptr);
    faults::pthread_mutex_trylock.Replace([](pthread_mutex_t *mutex) {
      asked_lock = mutex;
      return faults::pthread_mutex_trylock.Real(mutex);
    });
  }
};

// As a timer's handler does that interrupts a thread within a trace.
TEST_F(TraceLock, ALineFromWithinALineGoesOnWithoutTheLock) {
  Listen("*:4");
  bool once = true;
  faults::clock_gettime.Replace([&](clockid_t, timespec *now) {
    *now = {};
    if (std::exchange(once, false))
      Say("m", 1, "inner\n");
    return 0;
  });
  Say("m", 1, "outer\n");
  EXPECT_EQ(TakeReceived().size(), 2u);
}

TEST_F(TraceLock, IsHeldWhileThePrefixIsMade) {
  Listen("*:4");
  std::vector<bool> held;
  faults::clock_gettime.Replace([&](clockid_t, timespec *now) {
    *now = {};
    held.push_back(AskedLockIsHeld());
    return 0;
  });
  Say("m", 1, "text\n");
  EXPECT_EQ(held, std::vector<bool>{true});
}

bool held_in_callback;

TEST_F(TraceLock, IsNotHeldInTheCallback) {
  Configure("*:4");
  held_in_callback = true;
  KEL_TraceSetCB([](const char *) { held_in_callback = AskedLockIsHeld(); }, 0);
  Say("m", 1, "text\n");
  EXPECT_FALSE(held_in_callback);
}

TEST_F(TraceLock, IsNotHeldWhileTheFileIsWritten) {
  Deinit();
  const TempPath path;
  Init(path.c_str());
  Listen("*:4");
  std::vector<bool> held;
  faults::fputs.Replace([&](const char *, FILE *) {
    held.push_back(AskedLockIsHeld());
    return 1;
  });
  Say("m", 1, "text\n");
  EXPECT_EQ(held, std::vector<bool>{false});
}

TEST_F(TraceLock, IsReleasedAfterALineThatIsNotPrinted) {
  Listen("m:2,other:4");
  for (const auto &[module, level] : {std::pair{"m", 3}, std::pair{"absent", 1}}) {
    Say(module, level, "text\n");
    ASSERT_NE(asked_lock, nullptr);
    EXPECT_FALSE(AskedLockIsHeld()) << module;
  }
}

TEST_F(TraceLock, IsTakenOncePerLine) {
  Listen("*:4");
  Say("m", 1, "text\n");
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 1);
}

TEST_F(TraceLock, IsWaitedForWithoutLimit) {
  Listen("*:4");
  faults::pthread_mutex_trylock.Fail(EBUSY, 0, 0, 1);
  // One wait that ends by itself is followed by another one.
  faults::pthread_mutex_timedlock.Replace([](pthread_mutex_t *mutex, const timespec *until) {
    if (faults::pthread_mutex_timedlock.Count() == 1)
      return ETIMEDOUT;
    return faults::pthread_mutex_timedlock.Real(mutex, until);
  });
  Say("m", 1, "text\n");
  EXPECT_EQ(faults::pthread_mutex_timedlock.Count(), 2);
  EXPECT_EQ(TakeReceived().size(), 1u);
}

// The mutex traces its failure, which must not ask for the lock again.
TEST_F(TraceLock, FailureIsTracedOnceAndTheLineIsPrintedWithoutIt) {
  TraceCapture trace;
  faults::pthread_mutex_trylock.Fail(EBUSY, 0);
  faults::pthread_mutex_timedlock.Fail(EINVAL, 0);
  Say("m", 2, "text\n");
  EXPECT_EQ(faults::pthread_mutex_timedlock.Count(), 1);
  const Lines lines = trace.Take();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].level, "ERROR");
  EXPECT_EQ(lines[0].module, "kelmutex");
  EXPECT_EQ(lines[0].func, "KEL_MutexLock");
  EXPECT_NE(lines[0].message.find("ret=22 (Invalid argument)\n"), std::string::npos);
  EXPECT_EQ(lines[1], (TraceLine{"INFO ", "m", "file.c", "func", "text\n"}));
}

TEST_F(TraceLock, IsTakenAgainAfterAFailure) {
  Listen("*:4");
  faults::pthread_mutex_trylock.Fail(EBUSY, 0, 0, 1);
  faults::pthread_mutex_timedlock.Fail(EINVAL, 0, 0, 1);
  Say("m", 1, "text\n");
  TakeReceived();
  const int before = faults::pthread_mutex_trylock.Count();
  Say("m", 1, "text\n");
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), before + 1);
  EXPECT_EQ(TakeReceived().size(), 1u);
}

// ---- The trace file

TEST_F(Trace, FileGetsEachPrintedLineWithoutColour) {
  const TempPath path;
  Init(path.c_str());
  Listen("m:2");
  SetTick(1);
  Say("m", 1, "one\n");
  Say("m", 2, "two\n");
  Say("m", 3, "three\n");
  Say("other", 1, "four\n");
  Deinit();
  EXPECT_EQ(path.Contents(),
            "00000000001 ERROR:[m] file.c:42 (func) : one\n"
            "00000000001 INFO :[m] file.c:42 (func) : two\n");
}

TEST_F(Trace, FileGetsLinesAlsoWithoutOtherSinks) {
  const TempPath path;
  Init(path.c_str());
  Configure("m:2");
  KEL_TraceSetCB(nullptr, 0);
  SetTick(1);
  EXPECT_EQ(StdoutOf([] { Say("m", 1, "one\n"); }), "");
  Deinit();
  EXPECT_EQ(path.Contents(), "00000000001 ERROR:[m] file.c:42 (func) : one\n");
}

// Counts what is written to the trace file, and refuses it.
struct RefusedWrites {
  RefusedWrites() {
    faults::fputs.Replace([this](const char *text, FILE *file) {
      if (file == stdout)
        return faults::fputs.Real(text, file);
      texts.push_back(text);
      errno = ENOSPC;
      return EOF;
    });
  }
  ~RefusedWrites() { faults::fputs.Reset(); }
  Texts texts;
};

const TraceLine kOwnLine = {"INFO ", "m", "file.c", "func", "text\n"};
const TraceLine kRefusedLine = {"ERROR", "kelfile", "kelcore_file", "KEL_FileTextWrite",
                                "err(Success) errno(28) ferr(0) iseof(0)\n"};

TEST_F(Trace, LineAboutTheFilesFailureGoesToTheCallbackAndNotToTheFile) {
  const TempPath path;
  Init(path.c_str());
  TraceCapture trace;
  RefusedWrites refused;
  Say("m", 2, "text\n");
  EXPECT_EQ(trace.Take(), (Lines{kRefusedLine, kOwnLine}));
  EXPECT_EQ(refused.texts.size(), 1u);
}

TEST_F(Trace, LineAboutTheFilesFailureGoesToStandardOutput) {
  const TempPath path;
  Init(path.c_str());
  Configure("*:4");
  RefusedWrites refused;
  SetTick(1);
  std::string printed = StdoutOf([] { Say("m", 2, "text\n"); });
  // The source line is the file module's own affair.
  const size_t number = printed.find("kelcore_file:") + strlen("kelcore_file:");
  ASSERT_LT(number, printed.size());
  printed.erase(number, printed.find(' ', number) - number);
  EXPECT_EQ(printed,
            "00000000001 INFO :[m] file.c:42 (func) : text\n"
            "\033[31m00000000001 ERROR:[kelfile] kelcore_file: (KEL_FileTextWrite) : "
            "err(Success) errno(28) ferr(0) iseof(0)\n\033[0m");
}

TEST_F(Trace, FileIsTriedAgainWithTheNextLine) {
  const TempPath path;
  Init(path.c_str());
  Listen("*:4");
  RefusedWrites refused;
  Say("m", 2, "text\n");
  Say("m", 2, "text\n");
  EXPECT_EQ(refused.texts.size(), 2u);
}

TEST_F(Trace, AnotherThreadsLineGoesToTheFileWhileOneIsBeingWritten) {
  const TempPath path;
  Init(path.c_str());
  Listen("*:4");
  std::atomic<int> writes{0};
  faults::fputs.Replace([&](const char *, FILE *) {
    if (++writes == 1) {
      std::thread other([] { Say("other", 2, "text\n"); });
      other.join();
    }
    return 1;
  });
  Say("m", 2, "text\n");
  EXPECT_EQ(writes, 2);
}

TEST_F(Trace, FullDiskIsReportedOnceForEachLine) {
  Init("/dev/full");
  TraceCapture trace;
  // Each line is as long as the file's buffer, so that it has to be written.
  constexpr size_t kLines = 8;
  for (size_t i = 0; i < kLines; ++i)
    Say("m", 2, std::string(kBufferBytes, 'x'));
  const Lines lines = trace.Take("kelfile");
  EXPECT_GE(lines.size(), 1u);
  EXPECT_LE(lines.size(), kLines);
  for (const TraceLine &line : lines)
    EXPECT_EQ(line.message, "err(Operation not permitted) errno(28) ferr(1) iseof(0)\n");
}

// ---- KEL_TraceDeinit

TEST_F(Trace, DeinitDestroysTheLockAndClosesTheFileOnce) {
  const TempPath path;
  Init(path.c_str());
  faults::Record();
  Deinit();
  EXPECT_EQ(faults::pthread_mutex_destroy.Count(), 1);
  EXPECT_EQ(faults::fclose.Count(), 1);
}

TEST_F(Trace, DeinitDestroysTheLockBeforeItClosesTheFile) {
  const TempPath path;
  Init(path.c_str());
  faults::Record();
  Deinit();
  Texts calls;
  for (const std::string &call : faults::Log())
    if (call == "pthread_mutex_destroy" || call == "fclose")
      calls.push_back(call);
  EXPECT_EQ(calls, (Texts{"pthread_mutex_destroy", "fclose"}));
}

TEST_F(Trace, DeinitWithoutInitDoesNothing) {
  TraceCapture trace("kelmutex:0,*:4");
  faults::Record();
  KEL_TraceDeinit();
  KEL_TraceDeinit();
  EXPECT_EQ(faults::pthread_mutex_destroy.Count(), 0);
  EXPECT_EQ(faults::fclose.Count(), 0);
}

TEST_F(Trace, DeinitWithoutAFileClosesNothing) {
  Init(nullptr);
  faults::Record();
  Deinit();
  EXPECT_EQ(faults::pthread_mutex_destroy.Count(), 1);
  EXPECT_EQ(faults::fclose.Count(), 0);
}

TEST_F(Trace, AfterDeinitTracingTakesNoLockAndWritesNoFile) {
  const TempPath path;
  Init(path.c_str());
  Deinit();
  Listen("*:4");
  faults::Record();
  Say("m", 1, "text\n");
  EXPECT_EQ(TakeReceived().size(), 1u);
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
  EXPECT_EQ(faults::fputs.Count(), 0);
  EXPECT_EQ(path.Contents(), "");
}

TEST_F(Trace, FailingCloseOfTheFileIsTracedWithoutLockAndFile) {
  const TempPath path;
  Init(path.c_str());
  TraceCapture trace;
  faults::Record();
  faults::fclose.Replace([](FILE *file) {
    faults::fclose.Real(file);
    errno = EIO;
    return EOF;
  });
  Deinit();
  EXPECT_EQ(faults::pthread_mutex_trylock.Count(), 0);
  EXPECT_EQ(faults::fputs.Count(), 0);
  EXPECT_EQ(trace.Take(), (Lines{{"ERROR", "kelfile", "kelcore_file", "KEL_FileClose",
                                  "close errno(5), fd(-1)\n"}}));
}

TEST_F(Trace, InitWorksAgainAfterDeinit) {
  const TempPath path;
  Init(path.c_str());
  Deinit();
  Init(path.c_str());
  Listen("*:4");
  SetTick(1);
  Say("m", 1, "text\n");
  Deinit();
  EXPECT_EQ(path.Contents(), "00000000001 ERROR:[m] file.c:42 (func) : text\n");
}

// ---- Threads

// Ten threads trace one line each, then wait for one another: as many lines at
// a time as there are buffers.
class TraceThreads : public Trace {
 protected:
  static constexpr int kRounds = 200;

  static std::string Message(int thread, int round) {
    return Format("thread %d round %d ", thread, round) +
           std::string(static_cast<size_t>(thread * 50), static_cast<char>('a' + thread)) +
           "\n";
  }
  static void Run() {
    std::barrier barrier(kHistory);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kHistory; ++thread)
      threads.emplace_back([&barrier, thread] {
        for (int round = 0; round < kRounds; ++round) {
          Say("m", 2, Message(thread, round));
          barrier.arrive_and_wait();
        }
      });
    for (std::thread &thread : threads)
      thread.join();
  }
  // The messages of all threads, sorted.
  static Texts Expected() {
    Texts lines;
    for (int thread = 0; thread < kHistory; ++thread)
      for (int round = 0; round < kRounds; ++round)
        lines.push_back("INFO :[m] file.c:42 (func) : " + Message(thread, round));
    std::sort(lines.begin(), lines.end());
    return lines;
  }
  // The same from what a sink got, without ticks.
  static Texts Sorted(Texts lines) {
    for (std::string &line : lines)
      line.erase(0, line.find(' ') + 1);
    std::sort(lines.begin(), lines.end());
    return lines;
  }
  static Texts Split(const std::string &text) {
    Texts lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
      lines.push_back(line + "\n");
    return lines;
  }
};

TEST_F(TraceThreads, EveryLineReachesTheCallbackWhole) {
  Init(nullptr);
  Listen("m:2");
  Run();
  EXPECT_EQ(Sorted(TakeReceived()), Expected());
}

TEST_F(TraceThreads, EveryRoundUsesEachBufferOnce) {
  Init(nullptr);
  Listen("m:2");
  Run();
  for (size_t round = 0; round < kRounds; ++round) {
    const auto start = received.places.begin() + static_cast<ptrdiff_t>(round * kHistory);
    EXPECT_EQ(std::set<const char *>(start, start + kHistory).size(),
              static_cast<size_t>(kHistory));
  }
}

TEST_F(TraceThreads, EveryLineReachesStandardOutputAndFileWhole) {
  const TempPath path;
  Init(path.c_str());
  Configure("m:2");
  const std::string printed = StdoutOf([] { Run(); });
  Deinit();
  EXPECT_EQ(Sorted(Split(printed)), Expected());
  EXPECT_EQ(Sorted(Split(path.Contents())), Expected());
}

TEST_F(TraceThreads, CountsEveryLineAlsoWithoutTheLock) {
  Listen("m:2");
  Run();
  EXPECT_EQ(Sorted(TakeReceived()), Expected());
}

// ---- KEL_Hexdump

struct DumpRow {
  const char *name;
  std::string data;
  std::string rows;
};
const DumpRow kDumps[] = {
    {"Nothing", "", ""},
    {"OneByte", "A", "000: 41                                                A\n"},
    {"FifteenBytes", "0123456789abcde",
     "000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65      0123456789abcde\n"},
    {"OneRow", "0123456789abcdef",
     "000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66   0123456789abcdef\n"},
    {"OneRowAndAByte", "0123456789abcdefg",
     "000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66   0123456789abcdef\n"
     "016: 67                                                g\n"},
    {"BytesWithoutAShape", std::string("\0\x1f ~\x7f\x80\xff%\n", 9),
     "000: 00 1f 20 7e 7f 80 ff 25 0a                        .. ~...%.\n"},
};

class Hexdump : public Trace, public testing::WithParamInterface<DumpRow> {};

TEST_P(Hexdump, PrintsRowsOfSixteen) {
  const DumpRow &row = GetParam();
  EXPECT_EQ(StdoutOf([&] {
              KEL_Hexdump(row.data.data(), static_cast<uint32_t>(row.data.size()), "some.c",
                          -5);
            }),
            "some.c:-5 Hex Dump:\n" + row.rows);
}

INSTANTIATE_TEST_SUITE_P(Table, Hexdump, testing::ValuesIn(kDumps),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_F(Trace, HexdumpOfNothingDoesNotTouchTheData) {
  EXPECT_EQ(StdoutOf([] { KEL_Hexdump(nullptr, 0, "some.c", 5); }), "some.c:5 Hex Dump:\n");
}

TEST_F(Trace, HexdumpCountsItsOffsetsInDecimal) {
  const std::string data(1017, 'z');
  const std::string printed = StdoutOf([&] { KEL_Hexdump(data.data(), 1017, "some.c", 5); });
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 65);
  EXPECT_NE(printed.find("\n992: 7a 7a"), std::string::npos);
  EXPECT_NE(
      printed.find("\n1008: 7a 7a 7a 7a 7a 7a 7a 7a 7a                        zzzzzzzzz\n"),
      std::string::npos);
}

TEST_F(Trace, HexdumpIsNeitherFilteredNorGivenToOtherSinks) {
  const TempPath path;
  Init(path.c_str());
  for (const char *config : {"", "*:4"}) {
    Configure(config);
    KEL_TraceSetCB(Receive, 0);
    EXPECT_NE(StdoutOf([] { KEL_Hexdump("a", 1, "some.c", 5); }), "");
  }
  EXPECT_EQ(TakeReceived(), Texts{});
  Deinit();
  EXPECT_EQ(path.Contents(), "");
}

}  // namespace
