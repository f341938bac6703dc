// The printed forms of a report, the command line, and telling what a file is.

#include "report.h"

#include <gtest/gtest.h>

#include "builders.h"
#include "options.h"
#include "probe.h"

namespace kelstream_test {
namespace {

using kelstream::Codec;
using kelstream::Container;
using kelstream::FileReport;
using kelstream::JsonString;
using kelstream::Options;
using kelstream::ParseOptions;
using kelstream::Printable;
using kelstream::Probe;
using kelstream::StreamReport;

FileReport Video() {
  StreamReport stream;
  stream.format = {.codec = Codec::kH264,
                   .profile = "High",
                   .width = 1920,
                   .height = 1080,
                   .rate_numerator = 60000,
                   .rate_denominator = 2002};
  stream.frames = 30000;
  stream.key_frames = 12;
  stream.bytes = 2502500000;
  stream.crc = 0x1234AB;
  stream.seconds = 1001;
  return {.file = "film.264", .container = Container::kH264, .streams = {stream}};
}

FileReport Sound() {
  StreamReport stream;
  stream.format = {.codec = Codec::kAac, .profile = "LC", .sample_rate = 44100, .channels = 6};
  stream.frames = 5;
  stream.bytes = 1200;
  stream.seconds = 0.116;
  return {.file = "t\xC3\xB6n.aac", .container = Container::kAdts, .streams = {stream}};
}

FileReport Programme() {
  FileReport file = Video();
  file.file = "tv.ts";
  file.container = Container::kMpegTs;
  StreamReport &video = file.streams[0];
  video.info = {.number = 256, .has_pid = true, .type = 0x1B, .codec = Codec::kH264};
  video.times = {.known = true, .first = -5, .last = 8589934599};
  StreamReport other;
  other.index = 1;
  other.info = {.number = 8190, .has_pid = true, .type = 6, .codec = Codec::kOther};
  other.format.codec = Codec::kOther;
  other.bytes = 777;
  file.streams.push_back(other);
  return file;
}

TEST(TableTest, ColumnsLineUp) {
  FileReport unknown;
  unknown.file = "odd\nname";
  unknown.streams.resize(1);
  FileReport day = Video();
  day.streams[0].seconds = 86400.5;
  EXPECT_EQ(
      kelstream::FormatTable({Video(), Sound(), unknown, day, Programme()}),
      "FILE         #   PID  CODEC      PROFILE  FORMAT                FRAMES  KEY       BYTES "
      " "
      "CRC-32        DURATION   BIT RATE\n"
      "film.264     0     -  h264       High     1920x1080, 29.97 fps   30000   12  2502500000 "
      " "
      "001234ab     16:41.000  20.0 Mb/s\n"
      "t\xC3\xB6n.aac      0     -  aac        LC       44100 Hz, 6 ch             5    -      "
      "  "
      "1200  00000000      0:00.116    83 kb/s\n"
      "odd\\x0Aname  0     -  h264       -        -                          0    0           "
      "0  "
      "00000000             -          -\n"
      "film.264     0     -  h264       High     1920x1080, 29.97 fps   30000   12  2502500000 "
      " "
      "001234ab  24:00:00.500   232 kb/s\n"
      "tv.ts        0   256  h264       High     1920x1080, 29.97 fps   30000   12  2502500000 "
      " "
      "001234ab     16:41.000  20.0 Mb/s\n"
      "             1  8190  type 0x06  -        -                          -    -         "
      "777  00000000             -          -\n");
  EXPECT_EQ(kelstream::FormatTable({}), "");
}

TEST(JsonTest, Document) {
  EXPECT_EQ(kelstream::FormatJson({}), "[]\n");
  EXPECT_EQ(
      kelstream::FormatJson({Video(), Sound()}),
      "[{\"file\":\"film.264\",\"container\":\"h264\",\"streams\":[{\"index\":0,\"pid\":null,"
      "\"codec\":\"h264\",\"profile\":\"High\",\"width\":1920,\"height\":1080,"
      "\"frames\":30000,\"keyframes\":12,\"bytes\":2502500000,\"crc32\":\"001234ab\"}]},\n"
      " {\"file\":\"t\xC3\xB6n.aac\",\"container\":\"adts\",\"streams\":[{\"index\":0,"
      "\"pid\":null,\"codec\":\"aac\",\"profile\":\"LC\",\"sample_rate\":44100,"
      "\"channels\":6,\"frames\":5,\"bytes\":1200,\"crc32\":\"00000000\"}]}]\n");
  EXPECT_EQ(
      kelstream::FormatJson({Programme()}),
      "[{\"file\":\"tv.ts\",\"container\":\"mpegts\",\"streams\":[{\"index\":0,\"pid\":256,"
      "\"codec\":\"h264\",\"profile\":\"High\",\"width\":1920,\"height\":1080,"
      "\"frames\":30000,\"keyframes\":12,\"bytes\":2502500000,\"crc32\":\"001234ab\","
      "\"pts_first\":-5,\"pts_last\":8589934599},"
      "{\"index\":1,\"pid\":8190,\"codec\":null,\"stream_type\":6,\"bytes\":777,"
      "\"crc32\":\"00000000\",\"pts_first\":null,\"pts_last\":null}]}]\n");
}

TEST(NamesTest, OfStreams) {
  EXPECT_EQ(kelstream::FormatText(Programme().streams[0]), "h264 High, 1920x1080, 29.97 fps");
  EXPECT_EQ(kelstream::FormatText(Programme().streams[1]), "type 0x06");
  EXPECT_EQ(kelstream::FormatText(Sound().streams[0]), "aac LC, 44100 Hz, 6 ch");
}

TEST(FrameListTest, Table) {
  kelstream::FrameList list(false);
  const FileReport file = Programme();
  EXPECT_EQ(list.Frame(file, {.stream = 1,
                              .number = 7,
                              .offset = 12345678901,
                              .size = 100,
                              .key = true,
                              .has_pts = true,
                              .pts = -5}),
            "frames of tv.ts\n"
            "STREAM    NUMBER        OFFSET       SIZE  KEY           PTS\n"
            "     1         7   12345678901        100  key            -5\n");
  EXPECT_EQ(list.Frame(file, {}),
            "     0         0             0          0  -               -\n");
  EXPECT_EQ(list.EndFile(file), "\n");
  EXPECT_EQ(list.EndFile(file), "") << "without frames";
  EXPECT_EQ(list.End(), "");
}

TEST(FrameListTest, Json) {
  kelstream::FrameList list(true);
  FileReport file = Sound();
  file.streams.clear();
  const std::string head =
      "{\"file\":\"t\xC3\xB6n.aac\",\"container\":\"adts\",\"frame_list\":[";
  EXPECT_EQ(list.Frame(file, {.size = 9}),
            "[" + head +
                "\n  {\"stream\":0,\"number\":0,\"offset\":0,\"size\":9,"
                "\"key\":false,\"pts\":null}");
  EXPECT_EQ(list.Frame(file, {.stream = 2,
                              .number = 3,
                              .offset = 4,
                              .size = 5,
                              .key = true,
                              .has_pts = true,
                              .pts = 6}),
            ",\n  {\"stream\":2,\"number\":3,\"offset\":4,\"size\":5,\"key\":true,"
            "\"pts\":6}");
  EXPECT_EQ(list.EndFile(file), "],\"streams\":[]}");
  EXPECT_EQ(list.EndFile(file), ",\n " + head + "],\"streams\":[]}");
  EXPECT_EQ(list.End(), "]\n");
  EXPECT_EQ(kelstream::FrameList(true).End(), "[]\n");
}

TEST(JsonTest, StringsAreEscaped) {
  EXPECT_EQ(JsonString(""), "\"\"");
  EXPECT_EQ(JsonString("a\"b\\c/d"), "\"a\\\"b\\\\c/d\"");
  EXPECT_EQ(JsonString(std::string("\0\n\r\t\x1B\x7F", 6)),
            "\"\\u0000\\n\\r\\t\\u001b\\u007f\"");
  EXPECT_EQ(JsonString("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xA5"),
            "\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xA5\"");
  EXPECT_EQ(JsonString("x\xFFy\x80"), "\"x\\ufffdy\\ufffd\"");
  EXPECT_EQ(JsonString("\xC3"), "\"\\ufffd\"") << "cut";
  EXPECT_EQ(JsonString("\xC0\xAF"), "\"\\ufffd\\ufffd\"") << "overlong";
  EXPECT_EQ(JsonString("\xE0\x80\xAF"), "\"\\ufffd\\ufffd\\ufffd\"") << "overlong";
  EXPECT_EQ(JsonString("\xED\xA0\x80"), "\"\\ufffd\\ufffd\\ufffd\"") << "surrogate";
  EXPECT_EQ(JsonString("\xF4\x90\x80\x80"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"") << "too high";
  EXPECT_EQ(JsonString("\xE2\x82\""), "\"\\ufffd\\ufffd\\\"\"");
}

TEST(PrintableTest, NothingMovesTheCursor) {
  EXPECT_EQ(Printable("pl\xC3\xA4in name"), "pl\xC3\xA4in name");
  EXPECT_EQ(Printable("a\x1B[2J\n\x7F"), "a\\x1B[2J\\x0A\\x7F");
  EXPECT_EQ(Printable("\xC2\x9B\xFF"), "\\xC2\\x9B\\xFF");
}

TEST(OptionsTest, AllForms) {
  Options options;
  EXPECT_EQ(ParseOptions({"--json", "a", "--frames", "--publish", "tv", "--trace", "*:3",
                          "--trace-file=log", "-", "--", "--x"},
                         options),
            "");
  EXPECT_TRUE(options.json && options.trace && options.trace_to_file);
  EXPECT_TRUE(options.frames && options.publish);
  EXPECT_EQ(options.publish_name, "tv");
  EXPECT_EQ(options.trace_text, "*:3");
  EXPECT_EQ(options.trace_file, "log");
  EXPECT_EQ(options.files, (std::vector<std::string>{"a", "-", "--x"}));
}

TEST(OptionsTest, Problems) {
  const auto problem = [](const std::vector<std::string> &arguments) {
    Options options;
    return ParseOptions(arguments, options);
  };
  EXPECT_EQ(problem({}), "no file given");
  EXPECT_EQ(problem({"--json"}), "no file given");
  EXPECT_EQ(problem({"--jso", "a"}), "unknown option --jso");
  EXPECT_EQ(problem({"--json=1", "a"}), "unknown option --json=1");
  EXPECT_EQ(problem({"-j", "a"}), "unknown option -j");
  EXPECT_EQ(problem({"a", "--trace"}), "option --trace needs a value");
  EXPECT_EQ(problem({"--help"}), "");
  EXPECT_EQ(problem({"--watch", "x"}), "");
  EXPECT_EQ(problem({"--publish", "x"}), "no file given");
  EXPECT_EQ(problem({"--watch", "x", "a"}), "--watch goes with neither files nor --publish");
  EXPECT_EQ(problem({"--watch", "x", "--publish", "y"}),
            "--watch goes with neither files nor --publish");
}

Container ProbeAll(const Bytes &data, bool whole = true) {
  return Probe(data.data(), data.size(), whole);
}

TEST(ProbeTest, Streams) {
  const Bytes video = H264Stream::Sample(3).bytes();
  const Bytes sound = AdtsFrames({}, 6);
  EXPECT_EQ(ProbeAll(video), Container::kH264);
  EXPECT_EQ(ProbeAll(Bytes(1000, 0x47) + video), Container::kH264) << "garbage in front";
  EXPECT_EQ(ProbeAll(video.substr(0, 12)), Container::kH264) << "cut in the first header";
  EXPECT_EQ(ProbeAll(sound), Container::kAdts);
  EXPECT_EQ(ProbeAll(sound.substr(0, 20)), Container::kAdts);
  EXPECT_EQ(ProbeAll(Bytes(1000, 0xFF) + sound), Container::kAdts);
  EXPECT_EQ(ProbeAll(Bytes(1000, 0) + sound.substr(0, 150)), Container::kUnknown)
      << "two headers in the middle prove nothing";
}

TEST(ProbeTest, OtherFiles) {
  EXPECT_EQ(ProbeAll({}), Container::kUnknown);
  EXPECT_EQ(ProbeAll({0, 0, 0, 1}), Container::kUnknown);
  EXPECT_EQ(ProbeAll(Bytes(5000, 0)), Container::kUnknown);
  EXPECT_EQ(ProbeAll(Bytes(5000, 0xFF)), Container::kUnknown);
  const Bytes text(3000, 'a');
  EXPECT_EQ(ProbeAll(text), Container::kUnknown);
  // Start codes of a programme stream, of MPEG-4 video, of HEVC.
  for (const Bytes &header :
       {Bytes{0, 0, 1, 0xBA}, Bytes{0, 0, 1, 0x20}, Bytes{0, 0, 1, 0x40, 1}}) {
    const Bytes part = header + Bytes(50, 0x33);
    EXPECT_EQ(ProbeAll(part + part), Container::kUnknown);
  }
}

}  // namespace
}  // namespace kelstream_test
