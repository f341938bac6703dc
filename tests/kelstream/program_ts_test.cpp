// The whole program on transport streams, and the list of frames.

#include "program_fixture.h"
#include "ts_builder.h"

namespace kelstream_test {
namespace {

std::string Text(const Bytes &bytes) {
  return {bytes.begin(), bytes.end()};
}

class ProgramTsTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    show_ = ReadFile(MediaPath("show.ts"));
    ASSERT_EQ(show_.size(), 253988u);
  }
  // The report on these bytes, which must end with this status.
  std::string Inspect(const std::string &data, int status) {
    const Result result = RunProgram({"--json", temp_.Write("show.ts", data)});
    EXPECT_EQ(result.status, status) << result.err;
    error_ = result.err;
    return result.out;
  }
  static std::string Video(int frames, int keys) {
    return "\"pid\":256,\"codec\":\"h264\",\"profile\":\"High\",\"width\":480,\"height\":272,"
           "\"frames\":" +
           std::to_string(frames) + ",\"keyframes\":" + std::to_string(keys) + ",";
  }
  static std::string Sound(int frames) {
    return "\"pid\":257,\"codec\":\"aac\",\"profile\":\"LC\",\"sample_rate\":44100,"
           "\"channels\":1,"
           "\"frames\":" +
           std::to_string(frames) + ",";
  }
  // The elementary stream, taken out by hand.
  std::string Extract(unsigned pid) const {
    std::string stream;
    for (size_t at = 0; at < show_.size(); at += 188) {
      const auto byte = [&](size_t i) { return static_cast<uint8_t>(show_[at + i]); };
      if (((byte(1) & 31u) << 8 | byte(2)) != pid || (byte(3) & 0x10) == 0)
        continue;
      size_t begin = (byte(3) & 0x20) != 0 ? 5u + byte(4) : 4u;
      if ((byte(1) & 0x40) != 0)
        begin += 9u + byte(begin + 8);
      stream += show_.substr(at + begin, 188 - begin);
    }
    return stream;
  }

  std::string show_;
};

TEST_F(ProgramTsTest, Sample) {
  const std::string video = Extract(256), sound = Extract(257);
  EXPECT_EQ(Inspect(show_, 0),
            Document(File(temp_.Path("show.ts"), "mpegts",
                          "{\"index\":0," + Video(180, 6) + "\"bytes\":153836,\"crc32\":\"" +
                              Sum(video) + "\",\"pts_first\":132000,\"pts_last\":669000}," +
                              "{\"index\":1," + Sound(260) + "\"bytes\":50295,\"crc32\":\"" +
                              Sum(sound) + "\",\"pts_first\":129910,\"pts_last\":658629}")));
  EXPECT_EQ(error_, "");
  // The streams by themselves are the same.
  ExpectStream(
      video, 0, "h264",
      "{\"index\":0,\"pid\":null,\"codec\":\"h264\",\"profile\":\"High\",\"width\":480,"
      "\"height\":272,\"frames\":180,\"keyframes\":6,\"bytes\":153836}");
  ExpectStream(sound, 0, "adts",
               "{\"index\":0,\"pid\":null,\"codec\":\"aac\",\"profile\":\"LC\","
               "\"sample_rate\":44100,\"channels\":1,\"frames\":260,\"bytes\":50295}");
}

TEST_F(ProgramTsTest, Table) {
  const Result result = RunProgram({temp_.Write("show.ts", show_)});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(Contains(result.out, "  0  256  h264   High     480x272, 30 fps     180    6"))
      << result.out;
  EXPECT_TRUE(Contains(result.out, "  1  257  aac    LC       44100 Hz, 1 ch      260    -"));
  EXPECT_TRUE(Contains(result.out, "0:05.967"));
}

TEST_F(ProgramTsTest, CutAtOddPlaces) {
  for (const size_t size : Sizes{189, 376, 565, 1000, 5000, 100001, 253987}) {
    const std::string report = Inspect(show_.substr(0, size), 2);
    EXPECT_TRUE(Contains(report, "\"container\":\"mpegts\"")) << size << report;
    EXPECT_TRUE(Contains(error_, "warning: ")) << size;
  }
  EXPECT_TRUE(Contains(Inspect(show_.substr(0, 253987), 2), Video(180, 6)));
  EXPECT_TRUE(Contains(error_, "byte 253800: the file ends within a packet: 187 of 188 bytes"))
      << error_;
  // From the middle on: the tables come again, and what precedes them counts.
  const std::string late = Inspect(show_.substr(100003), 2);
  EXPECT_TRUE(Contains(late, "\"width\":480,\"height\":272,\"frames\":")) << late;
  EXPECT_TRUE(Contains(late, "\"codec\":\"aac\",\"profile\":\"LC\",\"sample_rate\":44100"));
  EXPECT_TRUE(Contains(error_, " bytes before the first packet")) << error_;
}

TEST_F(ProgramTsTest, Damage) {
  std::string damaged = show_;
  damaged.erase(188 * 500, 188 * 3);
  EXPECT_TRUE(Contains(Inspect(damaged, 2), "\"mpegts\""));
  EXPECT_TRUE(Contains(error_, "packets are missing")) << error_;
  damaged = show_;
  damaged.insert(188 * 700, std::string(777, 'x'));
  const std::string report = Inspect(damaged, 2);
  EXPECT_TRUE(Contains(report, Video(180, 6)) && Contains(report, Sound(260))) << report;
  EXPECT_TRUE(Contains(error_, "byte 131600: 777 bytes skipped up to the next packet"));
  Inspect(std::string(100, 'x') + show_, 2);
  EXPECT_TRUE(Contains(error_, "byte 0: 100 bytes before the first packet"));
}

TEST_F(ProgramTsTest, OtherStreams) {
  TsStreamBuilder stream;
  stream.Pat({{1, 32}}).Pmt(32, {{0x06, 200}, {0x0F, 201}});
  stream.Payload(200, Pes({.stream_id = 0xBD, .pts = 90}, Bytes(1000, '9')));
  stream.Payload(201, Pes({.stream_id = 0xC0, .pts = 80}, AdtsFrames({}, 5)));
  const std::string report = Inspect(Text(stream.bytes()), 0);
  EXPECT_TRUE(Contains(report,
                       "{\"index\":0,\"pid\":200,\"codec\":null,\"stream_type\":6,"
                       "\"bytes\":1000,\"crc32\":\"" +
                           Sum(std::string(1000, '9')) +
                           "\",\"pts_first\":90,\"pts_last\":90},{\"index\":1,\"pid\":201,"))
      << report;
}

TEST_F(ProgramTsTest, StreamsWithoutTables) {
  TsStreamBuilder stream;
  for (int i = 0; i < 10; ++i)
    stream.Payload(200, Pes({}, Bytes(100, 1)));
  EXPECT_EQ(Inspect(Text(stream.bytes()), 2),
            Document(File(temp_.Path("show.ts"), "mpegts", "")));
  EXPECT_TRUE(Contains(error_, "no programme map"));
}

TEST_F(ProgramTsTest, Frames) {
  const std::string path = temp_.Write("show.ts", show_);
  const Result json = RunProgram({"--json", "--frames", path, MediaPath("tone.aac")});
  EXPECT_EQ(json.status, 0);
  EXPECT_TRUE(json.out.starts_with(
      "[{\"file\":\"" + path +
      "\",\"container\":\"mpegts\",\"frame_list\":[\n"
      "  "
      "{\"stream\":0,\"number\":0,\"offset\":595,\"size\":3446,\"key\":true,\"pts\":132000},\n"
      "  {\"stream\":0,\"number\":1,\"offset\":4159,\"size\":1044,\"key\":false,"
      "\"pts\":141000},\n"))
      << json.out.substr(0, 500);
  EXPECT_TRUE(
      Contains(json.out,
               "  {\"stream\":1,\"number\":0,\"offset\":11864,\"size\":283,\"key\":true,"
               "\"pts\":129910}"));
  EXPECT_TRUE(Contains(json.out, "}],\"streams\":[{\"index\":0," + Video(180, 6)));
  EXPECT_TRUE(Contains(json.out,
                       "\"container\":\"adts\",\"frame_list\":[\n  {\"stream\":0,"
                       "\"number\":0,\"offset\":0,"));
  size_t frames = 0;
  for (size_t at = 0; (at = json.out.find("\"number\":", at)) != std::string::npos; ++at)
    ++frames;
  EXPECT_EQ(frames, 180u + 260 + 376);

  const Result table = RunProgram({"--frames", path});
  EXPECT_TRUE(
      table.out.starts_with("frames of " + path +
                            "\nSTREAM    NUMBER        OFFSET       SIZE  KEY           PTS\n"
                            "     0         0           595       3446  key        132000\n"))
      << table.out.substr(0, 500);
  EXPECT_TRUE(Contains(table.out, "\n\nFILE "));
  EXPECT_EQ(std::count(table.out.begin(), table.out.end(), '\n'), 2 + 440 + 1 + 3);
  EXPECT_EQ(RunProgram({"--json", "--frames", temp_.Path("none")}).out, "[]\n");
  EXPECT_EQ(RunProgram({"--json", "--frames", path}, {.out_path = "/dev/full"}).status, 1);
}

// A second field belongs to the frame that the first one began.
TEST_F(ProgramTsTest, FramesOfTwoFields) {
  H264Stream stream;
  stream.sps.frame_mbs_only = false;
  stream.Parameters();
  stream.Slice({.nal_type = 5, .type = kI, .field = true});
  stream.Slice({.nal_type = 5, .type = kI, .field = true, .bottom = true});
  const size_t size = stream.size();
  stream.Slice({.frame_num = 1, .field = true});
  const Result result =
      RunProgram({"--json", "--frames", temp_.Write("fields", Text(stream.bytes()))});
  EXPECT_TRUE(Contains(
      result.out, "{\"stream\":0,\"number\":0,\"offset\":0,\"size\":" + std::to_string(size) +
                      ",\"key\":true,\"pts\":null},\n"
                      "  {\"stream\":0,\"number\":1,\"offset\":" +
                      std::to_string(size) + ","))
      << result.out << result.err;
}

}  // namespace
}  // namespace kelstream_test
