// Help, version, wrong command lines, broken output.

#include <gtest/gtest.h>

#include "json_reader.h"
#include "program.h"

namespace kelctl_test {
namespace {

const std::vector<std::string> kCommands = {"ipc", "shm", "trace", "crc", "hexdump"};

TEST(CommandLine, Version) {
  for (const auto &words : {std::vector<std::string>{"--version"}, {"crc", "--version"}}) {
    const Result result = RunProgram(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "kelctl " KELCTL_VERSION "\n");
    EXPECT_EQ(result.err, "");
  }
}

TEST(CommandLine, HelpOverall) {
  const Result result = RunProgram({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(Contains(result.out, "Examples:"));
  for (const std::string &command : kCommands)
    EXPECT_TRUE(Contains(result.out, "\n  " + command + " ")) << command;
}

TEST(CommandLine, HelpOfEveryCommand) {
  for (const std::string &command : kCommands) {
    // Whatever else is said.
    const Result result = RunProgram({command, "a", "b", "--help"});
    EXPECT_EQ(result.status, 0) << command;
    EXPECT_EQ(result.err, "") << command;
    EXPECT_EQ(result.out.find("Usage: kelctl " + command), 0u);
    EXPECT_TRUE(Contains(result.out, "Examples:\n  ")) << command;
    for (size_t at = 0, end; (end = result.out.find('\n', at)) != std::string::npos;
         at = end + 1)
      EXPECT_LE(end - at, 80u) << result.out.substr(at, end - at);
  }
}

TEST(CommandLine, NotUnderstood) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "no command given"},
      {{""}, "unknown command"},
      {{"list"}, "unknown command list"},
      {{"--verbose"}, "unknown option --verbose"},
      {{"crc"}, "no FILE given"},
      {{"crc", "--fast", "x"}, "unknown option --fast"},
      {{"crc", "-x", "x"}, "unknown option -x"},
      {{"crc", "--json=1", "x"}, "option --json takes no value"},
      {{"hexdump"}, "no FILE given"},
      {{"hexdump", "a", "b"}, "one FILE at a time"},
      {{"hexdump", "a", "--offset"}, "option --offset needs a value"},
      {{"hexdump", "--offset", "-1", "a"}, "option --offset needs a number, not '-1'"},
      {{"hexdump", "--length=0x", "a"}, "option --length needs a number, not '0x'"},
      {{"hexdump", "--length=12k", "a"}, "not '12k'"},
      {{"hexdump", "--length=99999999999999999999", "a"}, "needs a number"},
      {{"trace"}, "no TEXT given"},
      {{"trace", "a:1", "b:2"}, "one TEXT only"},
      {{"trace", "-a:1"}, "unknown option -a:1"},
      {{"shm", "a", "b"}, "one NAME at a time"},
      {{"shm", "--remove"}, "no NAME given"},
      {{"shm", "--bytes", "1"}, "no NAME given"},
      {{"shm", "--bytes", "x", "a"}, "option --bytes needs a number, not 'x'"},
      {{"shm", "--bytes", "1", "--remove", "a"}, "--bytes does not go with it"},
      {{"ipc", "--drain"}, "no NAME given"},
      {{"ipc", "--remove"}, "no NAME given"},
      {{"ipc", "--only", "queue"}, "no NAME given"},
      {{"ipc", "--only", "mutex", "/a"}, "needs 'queue' or 'semaphore', not 'mutex'"},
      {{"ipc", "--drain", "--remove", "/a"}, "exclude each other"},
      {{"ipc", "--drain", "--only", "semaphore", "/a"}, "a semaphore is not drained"},
      {{"ipc", "/"}, "'/' names neither"},
      {{"ipc", ""}, "'' names neither"},
      {{"ipc", "/a/b"}, "'/a/b' names neither"},
  };
  for (const auto &[words, complaint] : cases) {
    const Result result = RunProgram(words);
    EXPECT_EQ(result.status, 2) << complaint;
    EXPECT_EQ(result.out, "") << complaint;
    EXPECT_TRUE(Contains(result.err, complaint)) << complaint << ": " << result.err;
    EXPECT_TRUE(Contains(result.err, "\nkelctl: try 'kelctl ")) << result.err;
  }
}

TEST(CommandLine, UsageNamesTheCommandsHelp) {
  EXPECT_TRUE(Contains(RunProgram({"shm", "a", "b"}).err, "try 'kelctl shm --help'"));
}

TEST(CommandLine, ComplaintsAreFitForATerminal) {
  const Result result = RunProgram({"crc", "odd\x1B[2J\n\xFF\xC2\x9B-\xC3\xA9"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "kelctl: cannot read odd\\x1b[2J\\x0a\\xff\\xc2\\x9b-\xC3\xA9: "
            "No such file or directory\n");
}

TEST(CommandLine, FullDisk) {
  for (const auto &words :
       {std::vector<std::string>{"--help"}, {"trace", "a:1"}, {"trace", "--json", "a:1"}}) {
    const Result result = RunProgram(words, {.out_path = "/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "kelctl: cannot write to standard output: No space left on device\n");
  }
}

}  // namespace
}  // namespace kelctl_test
