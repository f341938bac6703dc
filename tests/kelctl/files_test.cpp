// kelctl crc and kelctl hexdump.

#include <gtest/gtest.h>
#include <kelcore_hash.h>

#include <cstdio>
#include <random>

#include "json_reader.h"
#include "program.h"
#include "running_sum.h"

namespace kelctl_test {
namespace {

std::string Noise(size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  std::string text(size, '\0');
  for (char &character : text)
    character = static_cast<char>(random());
  return text;
}

std::string Hex(uint32_t number, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*x", digits, number);
  return text;
}

uint32_t Sum32(const std::string &data) {
  return KEL_Hash_crc32(data.data(), static_cast<uint32_t>(data.size()));
}
uint32_t Sum16(const std::string &data) {
  return KEL_Hash_crc16(data.data(), static_cast<uint32_t>(data.size()));
}

TEST(RunningSum, IsThatOfTheWholeHoweverItIsCut) {
  const std::string data = Noise(3'000'000);
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    kelctl::RunningSum crc32(KEL_Hash_crc32), crc16(KEL_Hash_crc16);
    for (size_t at = 0; at < data.size();) {
      const size_t size =
          std::min<size_t>(data.size() - at, random() % (round % 2 == 0 ? 2'500'000 : 50'000));
      crc32.Append(data.data() + at, size);
      crc16.Append(data.data() + at, size);
      at += size;
    }
    EXPECT_EQ(crc32.value(), Sum32(data));
    EXPECT_EQ(crc16.value(), Sum16(data));
  }
}

TEST(RunningSum, KeepsLeadingZerosApart) {
  const std::string zeros(5, '\0');
  for (const size_t cut : {size_t{0}, size_t{1}, size_t{4}, size_t{5}}) {
    kelctl::RunningSum crc32(KEL_Hash_crc32);
    crc32.Append(zeros.data(), cut);
    crc32.Append(zeros.data() + cut, zeros.size() - cut);
    EXPECT_EQ(crc32.value(), Sum32(zeros)) << cut;
  }
}

TEST(Crc, Table) {
  const TempDirectory temp;
  const std::string data = Noise(1'500'007);
  const std::string empty = temp.Write("empty", ""), large = temp.Write("large", data);
  const Result result = RunProgram({"crc", empty, large});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "CRC-32    CRC-16    BYTES  FILE\n"
            "00000000  0000          0  " +
                empty + "\n" + Hex(Sum32(data), 8) + "  " + Hex(Sum16(data), 4) +
                "    1500007  " + large + "\n");
}

TEST(Crc, KnownSums) {
  const Result result = RunProgram({"crc", "--json", "-"}, {.input = "123456789"});
  EXPECT_EQ(result.status, 0);
  const JsonValue document = ReadJson(result.out);
  EXPECT_EQ(document["files"][0]["file"].text, "-");
  EXPECT_EQ(document["files"][0]["bytes"].number, 9);
  EXPECT_EQ(document["files"][0]["crc32"].text, "cbf43926");
  EXPECT_EQ(document["files"][0]["crc16"].text, Hex(Sum16("123456789"), 4));
}

TEST(Crc, MissingFilesDoNotStopTheOthers) {
  const TempDirectory temp;
  const std::string good = temp.Write("good", "x"), missing = temp.Path("missing");
  const Result result = RunProgram({"crc", "--json", missing, temp.Path("."), good});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "kelctl: cannot read " + missing +
                            ": No such file or directory\nkelctl: cannot read " +
                            temp.Path(".") + ": Is a directory\n");
  const JsonValue document = ReadJson(result.out);
  ASSERT_EQ(document["files"].size(), 1u);
  EXPECT_EQ(document["files"][0]["file"].text, good);
}

TEST(Crc, OddNamesAreValidJson) {
  const TempDirectory temp;
  const std::string odd = temp.Write("a\"b\\c\n\t\x01\x7F\xFF\xC3\xA9", "x");
  const std::string out = RunProgram({"crc", "--json", odd}).out;
  EXPECT_TRUE(Contains(out, "\\u0001\\u007f")) << "nothing that steers a terminal";
  const JsonValue document = ReadJson(out);
  EXPECT_EQ(document["files"][0]["file"].text,
            temp.Path("a\"b\\c\n\t\x01\x7F\xEF\xBF\xBD\xC3\xA9"));
}

TEST(Crc, FilesThatBeginWithADash) {
  const Result result = RunProgram({"crc", "--", "--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "kelctl: cannot read --json: No such file or directory\n");
}

TEST(Hexdump, Rows) {
  const TempDirectory temp;
  const std::string file =
      temp.Write("f", std::string("kelctl ~\x7F\x80\0\n", 12) + "0123abcd");
  const Result result = RunProgram({"hexdump", file});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "00000000  6b 65 6c 63 74 6c 20 7e  7f 80 00 0a 30 31 32 33  |kelctl ~....0123|\n"
            "00000010  61 62 63 64                                       |abcd|\n");
}

TEST(Hexdump, OffsetAndLength) {
  const TempDirectory temp;
  const std::string file = temp.Write("f", "0123456789abcdefghijklmnopqrstuvwxyz");
  EXPECT_EQ(RunProgram({"hexdump", "--offset", "0x0a", "--length=3", file}).out,
            "0000000a  61 62 63                                          |abc|\n");
  EXPECT_EQ(RunProgram({"hexdump", "--offset=34", "--length", "1000", file}).out,
            "00000022  79 7a                                             |yz|\n");
  const Result at_end = RunProgram({"hexdump", "--offset=36", file});
  EXPECT_EQ(at_end.status, 0);
  EXPECT_EQ(at_end.out, "");
  EXPECT_EQ(RunProgram({"hexdump", "--length=0", file}).out, "");
  const Result behind = RunProgram({"hexdump", "--offset=37", file});
  EXPECT_EQ(behind.status, 1);
  EXPECT_EQ(behind.out, "");
  EXPECT_EQ(behind.err, "kelctl: the offset lies 1 byte behind the end of " + file + "\n");
}

TEST(Hexdump, StandardInput) {
  EXPECT_EQ(RunProgram({"hexdump", "--offset=2", "-"}, {.input = "abcd"}).out,
            "00000002  63 64                                             |cd|\n");
  const Result behind = RunProgram({"hexdump", "--offset=9", "-"}, {.input = "abcd"});
  EXPECT_EQ(behind.status, 1);
  EXPECT_EQ(behind.err, "kelctl: the offset lies 5 bytes behind the end of standard input\n");
}

TEST(Hexdump, LargeFilesKeepTheirRows) {
  const TempDirectory temp;
  const std::string data = Noise(200'001);
  const std::string file = temp.Write("f", data);
  const std::string out = RunProgram({"hexdump", "--offset=1", file}).out;
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 12'500);
  EXPECT_EQ(out.substr(out.size() - 79, 10), "00030d31  ");
  const JsonValue document = ReadJson(RunProgram({"hexdump", "--json", file}).out);
  EXPECT_EQ(document["length"].number, 200'001);
  std::string digits, expected;
  for (const JsonValue &row : document["rows"].items)
    digits += row["hex"].text;
  for (const char byte : data)
    expected += Hex(static_cast<uint8_t>(byte), 2);
  EXPECT_EQ(digits, expected);
  EXPECT_EQ(document["rows"][12'500]["offset"].number, 200'000);
}

TEST(Hexdump, FarOffsets) {
  const TempDirectory temp;
  const std::string file = temp.Write("f", "");
  if (truncate(file.c_str(), 0x100000002) != 0)
    GTEST_SKIP() << "no sparse files here";
  EXPECT_EQ(RunProgram({"hexdump", "--offset=0x100000000", file}).out,
            "0000000100000000  00 00                                             |..|\n");
}

TEST(Hexdump, JsonOfNothing) {
  const TempDirectory temp;
  const std::string file = temp.Write("f", "");
  const JsonValue document = ReadJson(RunProgram({"hexdump", "--json", file}).out);
  EXPECT_EQ(document["file"].text, file);
  EXPECT_EQ(document["rows"].size(), 0u);
  EXPECT_EQ(document["length"].number, 0);
}

TEST(Hexdump, Unreadable) {
  const TempDirectory temp;
  const Result result = RunProgram({"hexdump", temp.Path("none")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "kelctl: cannot read " + temp.Path("none") + ": No such file or directory\n");
}

}  // namespace
}  // namespace kelctl_test
