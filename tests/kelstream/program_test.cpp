// The whole program: samples, odd files, options, broken output.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "program_fixture.h"

namespace kelstream_test {
namespace {

TEST_F(ProgramTest, Samples) {
  const std::string video = MediaPath("bars.h264"), sound = MediaPath("tone.aac");
  const Result result = RunProgram({"--json", video, sound});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(WithoutSums(result.out),
            Document(File(video, "h264", VideoStream(200, 4, 301289)) + ",\n " +
                     File(sound, "adts", SoundStream(376, 98543))));
}

TEST_F(ProgramTest, Table) {
  const std::string video = temp_.Write("bars.h264", video_);
  const std::string sound = temp_.Write("tone.aac", sound_);
  EXPECT_EQ(Sum(video_) + Sum(sound_), "70e21c7765587546");
  const std::string pad(video.size() - 4, ' ');
  const Result result = RunProgram({video, sound});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(
      result.out,
      "FILE" + pad +
          "  #  PID  CODEC  PROFILE  FORMAT           FRAMES  KEY   BYTES  CRC-32    DURATION  "
          "BIT RATE\n" +
          video +
          "  0    -  h264   High     640x360, 25 fps     200    4  301289  70e21c77  0:08.000  "
          "301 "
          "kb/s\n" +
          sound +
          "   0    -  aac    LC       48000 Hz, 2 ch      376    -   98543  65587546  0:08.021 "
          "  98 "
          "kb/s\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(ProgramTest, OddFiles) {
  const std::string good = temp_.Write("good", sound_);
  const std::string line = File(good, "adts", SoundStream(376, 98543));
  const std::string empty = temp_.Write("empty", std::string());
  const std::string text = temp_.Write("text", std::string(5000, 'x'));
  const std::string tag = temp_.Write("tag", Id3v2(500));
  const std::string missing = temp_.Path("missing"), directory = temp_.Path("directory");
  std::filesystem::create_directory(directory);
  for (const auto &[path, why] : {std::pair{missing, "No such file or directory"},
                                  {directory, "Is a directory"},
                                  {empty, "the file is empty"},
                                  {text, "not a stream"},
                                  {tag, "not a stream"},
                                  {missing + "\x1B[2J", "missing\\x1B[2J: No such"}}) {
    const Result result = RunProgram({"--json", path, good});
    EXPECT_EQ(result.status, 1) << path;
    EXPECT_EQ(WithoutSums(result.out), Document(line)) << "the others are read";
    EXPECT_TRUE(Contains(result.err, why)) << result.err;
    EXPECT_TRUE(
        Contains(result.err, std::filesystem::path(path).filename().string().substr(0, 3)));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  const Result none = RunProgram({missing});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "") << "no table without a row";
}

TEST_F(ProgramTest, UnreadableFile) {
  if (geteuid() == 0)
    GTEST_SKIP() << "the superuser reads everything";
  const std::string path = temp_.Write("secret", sound_);
  chmod(path.c_str(), 0);
  const Result result = RunProgram({path});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(Contains(result.err, path + ": Permission denied"));
}

TEST_F(ProgramTest, FailureOutweighsDamage) {
  const std::string damaged = temp_.Write("damaged", sound_.substr(0, 5000));
  const std::string missing = temp_.Path("missing");
  const std::string good = MediaPath("tone.aac");
  EXPECT_EQ(RunProgram({damaged, good}).status, 2);
  EXPECT_EQ(RunProgram({damaged, missing}).status, 1);
  EXPECT_EQ(RunProgram({missing, damaged, good}).status, 1);
}

TEST_F(ProgramTest, FileNamesAreEscaped) {
  const std::string path = temp_.Write("a\"\n\xFF.aac", sound_);
  const Result result = RunProgram({"--json", path});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.out, "/a\\\"\\n\\ufffd.aac\"")) << result.out;
}

TEST_F(ProgramTest, StandardInput) {
  const Result result =
      RunProgram({"--json", "-"}, {.out_path = {}, .in_path = MediaPath("tone.aac")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutSums(result.out), Document(File("-", "adts", SoundStream(376, 98543))));
}

TEST_F(ProgramTest, HelpAndVersion) {
  const Result help = RunProgram({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(Contains(help.out, "Usage: kelstream"));
  EXPECT_TRUE(Contains(help.out, "--trace-file"));
  const Result version = RunProgram({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "kelstream " KELSTREAM_VERSION "\n");
}

TEST_F(ProgramTest, WrongCommandLines) {
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{}, {"--json"}, {"--nonsense", "x"}, {"--trace"}}) {
    const Result result = RunProgram(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(Contains(result.err, "try 'kelstream --help'")) << result.err;
  }
}

TEST_F(ProgramTest, BrokenOutput) {
  const std::string good = MediaPath("tone.aac");
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{good}, {"--json", good}, {"--help"}, {"--version"}}) {
    for (const Setting &setting :
         {Setting{.out_path = "/dev/full"}, Setting{.out_path = {}, .close_out = true}}) {
      const Result result = RunProgram(arguments, setting);
      EXPECT_EQ(result.status, 1) << arguments[0];
      EXPECT_TRUE(Contains(result.err, "standard output")) << result.err;
    }
  }
}

TEST_F(ProgramTest, TracesStayOutOfTheDocument) {
  const std::string log = temp_.Path("log"), good = MediaPath("tone.aac");
  const std::string document = Document(File(good, "adts", SoundStream(376, 98543)));
  const Result result =
      RunProgram({"--json", "--trace", "kelstream:4,kelfile:4", "--trace-file", log, good});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(WithoutSums(result.out), document);
  EXPECT_TRUE(Contains(result.err, "[kelstream]")) << "traces, and what KEL_TraceSet prints";
  EXPECT_TRUE(Contains(result.err, "Module:kelfile Level:4"));
  const std::string lines = ReadFile(log);
  EXPECT_TRUE(Contains(lines, "98543 bytes read as adts"));
  EXPECT_TRUE(Contains(lines, "[kelfile]"));
  EXPECT_TRUE(Contains(lines, "unit at 0: "));

  const Result table = RunProgram({"--trace", "kelstream:2", good});
  EXPECT_TRUE(Contains(table.out, "98543 bytes read as adts"));
  EXPECT_TRUE(Contains(table.out, "FILE "));
}

TEST_F(ProgramTest, TraceFileThatCannotBeWritten) {
  const std::string good = MediaPath("tone.aac");
  for (const std::string &path : {temp_.Path("no/log"), temp_.Path("")}) {
    const Result result = RunProgram({"--json", "--trace-file", path, good});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Contains(result.err, "cannot write the trace file"));
  }
}

TEST_F(ProgramTest, ManyFilesInOneRun) {
  std::vector<std::string> arguments = {"--json"};
  std::string expected;
  for (int i = 0; i < 40; ++i) {
    arguments.push_back(MediaPath("tone.aac"));
    expected += (i > 0 ? ",\n " : "") + File(arguments.back(), "adts", SoundStream(376, 98543));
  }
  EXPECT_EQ(WithoutSums(RunProgram(arguments).out), Document(expected));
}

}  // namespace
}  // namespace kelstream_test
