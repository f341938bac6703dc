// kelctl trace, beside what the library does with the same text.

#include <gtest/gtest.h>
#include <kelcore_trace.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <set>

#include "json_reader.h"
#include "program.h"
#include "trace_table.h"

namespace kelctl_test {
namespace {

using kelctl::Fate;
using kelctl::ReadTraceText;
using kelctl::TraceSegment;

constexpr int kHighestLevel = 6;
int lines = 0;

void CountLine(const char * /*line*/) {
  ++lines;
}

// How many levels of each module get through, and whether bare text does.
// In a process of its own: a '*' goes on to whatever is set later.
std::string LibraryAdmits(const std::string &text, const std::set<std::string> &modules) {
  const int file = memfd_create("traces", 0);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(file, STDOUT_FILENO);
    KEL_TraceSetCB(CountLine, 0);
    KEL_TraceSet(text.c_str());
    std::printf("\n@");
    for (const std::string &module : modules) {
      lines = 0;
      for (int level = 1; level <= kHighestLevel; ++level)
        KEL_Trace(module.c_str(), level, "f", 1, "m", "x\n");
      std::printf("%d ", lines);
    }
    KEL_Traces("bare");
    std::fflush(stdout);
    _exit(0);
  }
  waitpid(pid, nullptr, 0);
  std::string all(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
  if (pread(file, all.data(), all.size(), 0) != static_cast<ssize_t>(all.size()))
    all.clear();
  close(file);
  const size_t at = all.rfind("\n@");
  return at == std::string::npos ? "nothing" : all.substr(at + 2);
}

std::string KelctlAdmits(const std::vector<TraceSegment> &segments,
                         const std::set<std::string> &modules) {
  std::string text;
  for (const std::string &module : modules) {
    int level = 0;
    for (const TraceSegment &segment : segments)
      if (segment.decides() && (segment.matches_all() || segment.module == module)) {
        level = std::min(segment.level, kHighestLevel);
        break;
      }
    text += std::to_string(level) + " ";
  }
  for (const TraceSegment &segment : segments)
    if (segment.fate == Fate::kEntry && segment.matches_all() && segment.level > 0)
      return text + "bare";
  return text;
}

// Those that the text speaks of, in full and as the table keeps them.
std::set<std::string> ModulesOf(const std::vector<TraceSegment> &segments) {
  std::set<std::string> modules = {"other", "*", ""};
  for (const TraceSegment &segment : segments) {
    modules.insert(segment.module);
    modules.insert(segment.text.substr(0, segment.text.find(':')));
  }
  return modules;
}

void ExpectAsTheLibrary(const std::string &text) {
  const std::vector<TraceSegment> segments = ReadTraceText(text);
  const std::set<std::string> modules = ModulesOf(segments);
  EXPECT_EQ(KelctlAdmits(segments, modules), LibraryAdmits(text, modules)) << text;
}

std::string Long(size_t length) {
  return std::string(length, 'n');
}

TEST(TraceTable, ReadsAsTheLibrary) {
  std::string many;
  for (int i = 0; i < 25; ++i)
    many += "m" + std::to_string(i) + (i % 5 == 4 ? "," : ":3,");
  for (const std::string &text :
       std::vector<std::string>{"",
                                ",",
                                ",,a:1,",
                                "player:4",
                                "player:4,*:1",
                                "*:1,player:4",
                                "*:0,player:4",
                                "*:-1,a:3",
                                "*:0,*:3",
                                "*:0,*:3,*:5",
                                "a:2,a:4",
                                "a",
                                "a:",
                                ":3",
                                ":",
                                "::3",
                                "a:x",
                                "a:3x",
                                "a: 3",
                                " a:3",
                                "a :3",
                                "a:+2",
                                "a:-2",
                                "a:0x3",
                                "a:4294967298",
                                "a:2147483648",
                                "a:9999999999999999999999",
                                "a:-9999999999999999999999",
                                "a:9",
                                many,
                                "x," + many,
                                many + "*:2",
                                Long(29) + ":3,b:1",
                                Long(30) + ":3,b:1",
                                Long(31) + ":3,b:1",
                                Long(32) + ":3,b:1",
                                "b:1," + Long(29) + ":3",
                                "b:1," + Long(30) + ":3",
                                "b:1," + Long(31) + ":3",
                                "b:1," + Long(32) + ":3",
                                Long(125) + ":33,b:1",
                                Long(126) + ":3",
                                Long(127) + ":3",
                                "a:" + Long(200),
                                "a:3" + Long(200),
                                "a:" + std::string(124, '0') + "3,b:2",
                                "a:" + std::string(125, '0') + "3,b:2"})
    ExpectAsTheLibrary(text);
}

TEST(TraceTable, ReadsRandomTextsAsTheLibrary) {
  const std::vector<std::string> pieces = {
      "a", "b", "*", ":", ":",  ":",   ",",  ",",  ",",           "1",      "2",     "4",
      "-", " ", "0", "9", "\t", "a:3", "*:", "b:", "99999999999", Long(15), Long(31)};
  std::mt19937 random(7);
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    std::string text;
    for (size_t left = random() % 80; left > 0; --left)
      text += pieces[random() % pieces.size()];
    ExpectAsTheLibrary(text);
  }
}

TEST(Trace, InPlainWords) {
  const Result result = RunProgram({"trace", "kelqueue:3,player:0,*:1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "1  'kelqueue:3': module 'kelqueue' prints ERROR, INFO, DEBUG\n"
            "2  'player:0': module 'player' prints nothing\n"
            "3  '*:1': every other module prints ERROR\n"
            "KEL_Traces prints, and goes on to whatever is set later.\n");
}

TEST(Trace, WhatIsSkippedOrNotReached) {
  EXPECT_EQ(RunProgram({"trace", "*:1,player:4"}).out,
            "1  '*:1': every module prints ERROR\n"
            "2  'player:4': not read\n"
            "     the '*' of segment 1 ends the reading\n"
            "KEL_Traces prints, and goes on to whatever is set later.\n");
  EXPECT_EQ(RunProgram({"trace", "junk,,a:2,a:4"}).out,
            "1  'junk': skipped\n"
            "     there is no ':' in it\n"
            "2  '': skipped\n"
            "     it is empty\n"
            "3  'a:2': module 'a' prints ERROR, INFO\n"
            "4  'a:4': module 'a' at level 4, never reached: segment 3 decides first\n"
            "Every other module prints nothing.\n"
            "KEL_Traces prints only if a '*' with a level above 0 was set before.\n");
  EXPECT_TRUE(Contains(RunProgram({"trace", ""}).out, "No module prints anything.\n"));
}

TEST(Trace, OddLevelsAndNames) {
  const auto expect = [](const std::string &text, const std::string &note) {
    const std::string out = RunProgram({"trace", "--", text}).out;
    EXPECT_TRUE(Contains(out, "\n     " + note + "\n")) << out;
  };
  expect("a:9", "level 9 is above TRACE (4): lines of levels 5 to 9 print, too, named TRACE");
  expect("a:-3", "level -3 is below 0 and counts as 0");
  expect("a:", "no number behind the ':', which counts as level 0");
  expect("a:3x", "'x' behind the number is not read");
  expect("a:4294967297", "level 4294967297 does not fit in 32 bits and becomes 1");
  expect(" a:1", "the blanks around the name belong to it");
  expect(":1", "the name is empty");
  expect(Long(40) + ":1", "the name is cut to 29 characters, and no longer one matches");
  expect("a:1" + Long(140), "only the first 127 characters are read");
  expect("-b:1x\x1B", "'x\\x1b' behind the number is not read");
}

TEST(Trace, FullTable) {
  std::string text;
  for (int i = 0; i < 21; ++i)
    text += "m" + std::to_string(i) + ":1,";
  const std::string out = RunProgram({"trace", text}).out;
  EXPECT_TRUE(Contains(out,
                       "20  'm19:1': module 'm19' prints ERROR\n21  'm20:1': not read\n"
                       "     the table is full with 20 entries\n"))
      << out;
}

TEST(Trace, Json) {
  const Result result = RunProgram({"trace", "--json", "p\"l\xFFy:3,x,p\"l\xFFy:1,*:0,b:2"});
  EXPECT_EQ(result.status, 0);
  const JsonValue document = ReadJson(result.out);
  const JsonValue &segments = document["segments"];
  ASSERT_EQ(segments.size(), 5u);
  EXPECT_EQ(segments[0]["module"].text, "p\"l\xEF\xBF\xBDy");
  EXPECT_EQ(segments[0]["level"].number, 3);
  EXPECT_EQ(segments[0]["prints"].size(), 3u);
  EXPECT_TRUE(segments[0]["hidden_by"].null());
  EXPECT_EQ(segments[1]["fate"].text, "skipped");
  EXPECT_EQ(segments[1]["notes"].size(), 1u);
  EXPECT_EQ(segments[2]["hidden_by"].number, 1);
  EXPECT_EQ(segments[2]["prints"].size(), 0u);
  EXPECT_EQ(segments[4]["number"].number, 5);
  EXPECT_EQ(segments[4]["fate"].text, "entry");
  EXPECT_EQ(segments[4]["hidden_by"].number, 4);
  EXPECT_FALSE(document["others_print_nothing"].truth);
  EXPECT_FALSE(document["bare_text"].truth);
  EXPECT_TRUE(ReadJson(RunProgram({"trace", "--json", "*:0,*:2"}).out)["bare_text"].truth);
  EXPECT_EQ(
      ReadJson(RunProgram({"trace", "--json", "*:2,a:1"}).out)["segments"][1]["fate"].text,
      "unread");
}

}  // namespace
}  // namespace kelctl_test
