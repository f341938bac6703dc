// The whole program on streams that were cut, joined, damaged, or are huge.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "program_fixture.h"

namespace kelstream_test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

class ProgramStreamsTest : public ProgramTest {};

TEST_F(ProgramStreamsTest, JoinedFilesCountTwice) {
  ExpectVideo(video_ + video_, 0, 400, 8, 602578);
  ExpectSound(sound_ + sound_, 0, 752, 197086);
}

TEST_F(ProgramStreamsTest, VideoCutAtOddPlaces) {
  // In the first start code nothing is to be seen yet.
  for (const size_t size : Sizes{1, 2, 3, 4}) {
    const std::string path = temp_.Write("cut", video_.substr(0, size));
    const Result result = RunProgram({"--json", path});
    EXPECT_EQ(result.status, 1) << size;
    EXPECT_EQ(result.out, "[]\n");
    EXPECT_TRUE(Contains(result.err, path));
  }
  // In the parameter sets, the SEI, and the header of the first slice.
  for (const size_t size :
       Sizes{5, 7, 12, 26, 27, 28, 29, 31, 33, 38, 40, 300, 739, 741, 744, 745}) {
    const std::string path = temp_.Write("cut", video_.substr(0, size));
    const Result result = RunProgram({"--json", path});
    EXPECT_EQ(result.status, 2) << size;
    EXPECT_TRUE(Contains(result.out, "\"frames\":0,\"keyframes\":0,")) << size;
    EXPECT_TRUE(Contains(result.err, "warning: ")) << size;
  }
  // In start codes and headers further on: the second picture begins at 4849.
  ASSERT_EQ(video_.substr(4849, 5), std::string("\0\0\0\1\x41", 5));
  ExpectVideo(video_.substr(0, 4849), 0, 1, 1, 4849);
  for (const size_t size : Sizes{4850, 4851, 4852, 4853, 4854, 4855}) {
    // The beginning of a picture that cannot be read is not counted.
    ExpectVideo(video_.substr(0, size), 2, 1, 1, size == 4855 ? 4849 : size);
    EXPECT_TRUE(Contains(error_, size < 4853 ? "byte 741: " : "byte 4849: ")) << error_;
  }
  // The sum covers what is counted.
  const Result part = RunProgram({"--json", temp_.Write("cut", video_.substr(0, 4855))});
  EXPECT_TRUE(
      Contains(part.out, "\"bytes\":4849,\"crc32\":\"" + Sum(video_.substr(0, 4849)) + "\"}"))
      << part.out;
  // Within coded data the cut cannot be seen.
  ExpectVideo(video_.substr(0, 4900), 0, 2, 1, 4900);
}

TEST_F(ProgramStreamsTest, VideoWithoutItsBeginning) {
  // From within the first picture on: no parameter sets until the second key
  // frame, then all is well.
  const std::string path = temp_.Write("late", video_.substr(1000));
  const Result result = RunProgram({"--json", path});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(Contains(result.out, "\"frames\":150,\"keyframes\":3,")) << result.out;
  EXPECT_TRUE(Contains(result.err, "byte 0: 3849 bytes before the first start code"));
  EXPECT_TRUE(Contains(result.err, "slice without its picture parameter set"));
  EXPECT_TRUE(Contains(result.err, "more\n")) << "a long list is cut";
}

TEST_F(ProgramStreamsTest, VideoWithoutAReferencePicture) {
  // The first P picture, and the B picture behind it.
  ExpectVideo(video_.substr(0, 4849) + video_.substr(7224), 2, 198, 4, 301289 - 2375);
  EXPECT_TRUE(Contains(error_, "byte 4849: reference pictures are missing")) << error_;
  // A picture that no other refers to is not missed.
  ExpectVideo(video_.substr(0, 6346) + video_.substr(7224), 0, 199, 4, 301289 - 878);
}

TEST_F(ProgramStreamsTest, VideoWithGarbage) {
  ExpectVideo("garbage in front" + video_, 2, 200, 4, 301289);
  EXPECT_TRUE(Contains(error_, "byte 0: 16 bytes before the first start code"));
  std::string zeroed = video_;
  zeroed.replace(20000, 40, 40, '\0');
  ExpectVideo(zeroed, 2, 200, 4, 301289);
  EXPECT_TRUE(Contains(error_, "byte 20000: zero bytes")) << error_;
  std::string header = video_;
  header[4853] = '\xC1';
  ExpectVideo(header, 2, 199, 4, 301289);
  EXPECT_TRUE(Contains(error_, "byte 4849: NAL unit with forbidden_zero_bit")) << error_;
}

TEST_F(ProgramStreamsTest, SoundCutAtOddPlaces) {
  const std::vector<size_t> frames = SoundFrames();
  ASSERT_EQ(frames.size(), 376u);
  for (const size_t frame : Sizes{1u, 2u, 100u, 375u}) {
    const size_t begin = frames[frame];
    ExpectSound(sound_.substr(0, begin), 0, static_cast<int>(frame), begin);
    for (const size_t extra : Sizes{1, 2, 3, 6, 7, 8, 20}) {
      if (begin + extra >= sound_.size() ||
          (frame + 1 < frames.size() && begin + extra >= frames[frame + 1]))
        continue;
      ExpectSound(sound_.substr(0, begin + extra), 2, static_cast<int>(frame), begin);
      EXPECT_TRUE(Contains(error_, ": byte " + std::to_string(begin) + ": ")) << error_;
    }
  }
  // Without its first bytes: the first frame is lost.
  ExpectSound(sound_.substr(5), 2, 375, sound_.size() - frames[1]);
  EXPECT_TRUE(Contains(error_, "byte 0: "));
}

TEST_F(ProgramStreamsTest, SoundWithGarbage) {
  const size_t at = SoundFrames()[200];
  const std::string garbage(1500, '\xF3');
  ExpectSound(garbage + sound_, 2, 376, 98543);
  EXPECT_TRUE(Contains(error_, "byte 0: 1500 bytes before the first frame"));
  std::string middle = sound_;
  middle.insert(at, garbage);
  ExpectSound(middle, 2, 376, 98543);
  EXPECT_TRUE(Contains(error_, "byte " + std::to_string(at) + ": 1500 bytes skipped"))
      << error_;
  ExpectSound(sound_ + garbage, 2, 376, 98543);
  std::string overwritten = sound_;
  overwritten.replace(at, 4, 4, 'x');
  ExpectSound(overwritten, 2, 375, 98543 - (SoundFrames()[201] - at));
}

TEST_F(ProgramStreamsTest, TagsAroundSound) {
  const auto text = [](const Bytes &bytes) { return std::string(bytes.begin(), bytes.end()); };
  for (const size_t size : Sizes{20, 300000, 2000000})
    ExpectSound(text(Id3v2(size)) + sound_ + text(Id3v1()), 0, 376, 98543);
}

TEST_F(ProgramStreamsTest, LargeUnitsTravelInFragments) {
  H264Stream stream;
  stream.Parameters().Idr();
  for (const size_t size : Sizes{32768, 300000, 3000000})
    stream.Slice({.ref_idc = 0,
                  .frame_num = 1,
                  .poc_lsb = static_cast<uint32_t>(size % 251),
                  .payload = size});
  const std::string path = temp_.Write("large", stream.bytes());
  const Result result = RunProgram({"--json", path});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(Contains(result.out, "\"frames\":4,\"keyframes\":1,\"bytes\":" +
                                       std::to_string(stream.size()) + ","))
      << result.out;
}

TEST_F(ProgramStreamsTest, MemoryDoesNotGrowWithTheFile) {
  if (kSanitized)
    GTEST_SKIP() << "sanitizers keep memory of their own";
  // One picture of 100 MB, then 100 MB of zeros, most of it a hole.
  const std::string path = temp_.Write("huge", video_.substr(0, 4849));
  {
    std::ofstream file(path, std::ios::binary | std::ios::app);
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 100; ++i)
      file << block;
  }
  std::filesystem::resize_file(path, 200 << 20);
  const Result video = RunProgram({"--json", path});
  EXPECT_EQ(video.status, 0) << video.err;
  EXPECT_EQ(video.err, "") << "a progress bar is for terminals";
  EXPECT_TRUE(Contains(video.out, "\"frames\":1,")) << video.out;
  EXPECT_LT(video.max_rss_kb, 32 * 1024);
  // Sound that never comes back.
  temp_.Write("huge", sound_);
  std::filesystem::resize_file(path, 200 << 20);
  const Result sound = RunProgram({"--json", path});
  EXPECT_EQ(sound.status, 2);
  EXPECT_TRUE(Contains(WithoutSums(sound.out), SoundStream(376, 98543)));
  EXPECT_LT(sound.max_rss_kb, 32 * 1024);
}

// A terminal, from the side of the program that draws it.
class Terminal {
 public:
  Terminal() : fd_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (fd_ != -1 && grantpt(fd_) == 0 && unlockpt(fd_) == 0 &&
        ptsname_r(fd_, name_, sizeof name_) == 0)
      // Held open, so that what was written stays when the writer ends.
      other_ = open(name_, O_RDWR | O_NOCTTY | O_CLOEXEC);
    fcntl(fd_, F_SETFL, O_NONBLOCK);
  }
  ~Terminal() {
    close(other_);
    close(fd_);
  }
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  bool ok() const { return other_ != -1; }
  const char *name() const { return name_; }
  std::string Shown() const {
    std::string text;
    char buffer[4096];
    for (ssize_t count = 0; (count = read(fd_, buffer, sizeof buffer)) > 0;)
      text.append(buffer, static_cast<size_t>(count));
    return text;
  }

 private:
  int fd_;
  int other_ = -1;
  char name_[64] = "";
};

TEST_F(ProgramStreamsTest, ATerminalShowsTheProgressOfLargeFiles) {
  const Terminal terminal;
  if (!terminal.ok())
    GTEST_SKIP() << "no terminal to be had";
  const std::string path = temp_.Write("large", sound_);
  // Long enough for some ticks, also on fast machines, and none of it on disk.
  std::filesystem::resize_file(path, uint64_t{kSanitized ? 1 : 4} << 30);
  const Result large = RunProgram({"--json", path}, {.err_path = terminal.name()});
  EXPECT_EQ(large.status, 2);
  EXPECT_TRUE(Contains(large.out, "\"frames\":376,"));
  const std::string shown = terminal.Shown();
  EXPECT_TRUE(Contains(shown, "\r[........................................]   0 %")) << shown;
  EXPECT_TRUE(Contains(shown, " %\r\033[Kkelstream: warning: ")) << "it is taken back";
  RunProgram({"--json", temp_.Write("small", sound_)}, {.err_path = terminal.name()});
  EXPECT_EQ(terminal.Shown(), "") << "nothing for small files";
}

}  // namespace
}  // namespace kelstream_test
