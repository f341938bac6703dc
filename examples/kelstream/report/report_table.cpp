// The report as a table for people.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "report.h"
#include "utf8.h"

namespace kelstream {

namespace {

constexpr const char kUnknown[] = "-";

constexpr size_t kColumns = 12;
using Row = std::array<std::string, kColumns>;

constexpr std::array<const char *, kColumns> kTitles = {
    "FILE",   "#",   "PID",   "CODEC",  "PROFILE",  "FORMAT",
    "FRAMES", "KEY", "BYTES", "CRC-32", "DURATION", "BIT RATE"};
// Names stand at the left of their column, numbers at the right.
constexpr std::array<bool, kColumns> kRight = {false, true, true, false, false, false,
                                               true,  true, true, false, true,  true};

[[gnu::format(printf, 1, 2)]] std::string Print(const char *format, ...) {
  char text[96];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

std::string FrameRate(const StreamFormat &format) {
  std::string text = Print("%.3f", static_cast<double>(format.rate_numerator) /
                                       static_cast<double>(format.rate_denominator));
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.')
    text.pop_back();
  return text;
}

std::string Format(const StreamFormat &format) {
  if (format.codec == Codec::kAac) {
    if (format.sample_rate == 0)
      return kUnknown;
    const std::string rate = Print("%u Hz", format.sample_rate);
    return format.channels != 0 ? rate + Print(", %u ch", format.channels) : rate;
  }
  if (format.codec == Codec::kOther || format.width == 0)
    return kUnknown;
  const std::string size = Print("%ux%u", format.width, format.height);
  return format.rate_denominator != 0 ? size + ", " + FrameRate(format) + " fps" : size;
}

// Hours only where there are any.
std::string Duration(double seconds) {
  if (seconds <= 0)
    return kUnknown;
  const auto ms = static_cast<unsigned long long>(std::llround(seconds * 1000));
  const unsigned long long hours = ms / 3600000, minutes = ms / 60000 % 60;
  const unsigned long long rest = ms % 60000;
  const std::string tail = Print("%02llu.%03llu", rest / 1000, rest % 1000);
  return hours > 0 ? Print("%llu:%02llu:", hours, minutes) + tail
                   : Print("%llu:", minutes) + tail;
}

std::string BitRate(const StreamReport &stream) {
  if (stream.seconds <= 0)
    return kUnknown;
  const double rate = static_cast<double>(stream.bytes) * 8 / stream.seconds;
  return rate < 10e6 ? Print("%.0f kb/s", rate / 1e3) : Print("%.1f Mb/s", rate / 1e6);
}

Row RowOf(const FileReport &file, size_t index) {
  const StreamReport &stream = file.streams[index];
  const StreamFormat &format = stream.format;
  const bool video = format.codec == Codec::kH264;
  const bool parsed = format.codec != Codec::kOther;
  return {index == 0 ? Printable(file.file) : "",
          std::to_string(index),
          stream.info.has_pid ? std::to_string(stream.info.number) : kUnknown,
          CodecName(stream),
          format.profile[0] != 0 ? format.profile : kUnknown,
          Format(format),
          parsed ? std::to_string(stream.frames) : kUnknown,
          video ? std::to_string(stream.key_frames) : kUnknown,
          std::to_string(stream.bytes),
          Print("%08x", unsigned{stream.crc}),
          Duration(stream.seconds),
          BitRate(stream)};
}

// Characters, as far as UTF-8 tells; other bytes count one each.
size_t Width(std::string_view text) {
  size_t width = 0;
  for (; !text.empty(); ++width)
    text.remove_prefix(std::max<size_t>(shared::Utf8Length(text), 1));
  return width;
}

}  // namespace

std::string CodecName(const StreamReport &stream) {
  switch (stream.format.codec) {
    case Codec::kH264:
      return "h264";
    case Codec::kAac:
      return "aac";
    case Codec::kOther:
      break;
  }
  return Print("type 0x%02x", unsigned{stream.info.type});
}

std::string FormatText(const StreamReport &stream) {
  const StreamFormat &format = stream.format;
  std::string text = CodecName(stream);
  if (format.profile[0] != 0)
    text += std::string(" ") + format.profile;
  const std::string details = Format(format);
  return details == kUnknown ? text : text + ", " + details;
}

std::string Printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const size_t length = shared::Utf8Length(text);
    const auto first = static_cast<unsigned char>(text.front());
    // The second half of the control characters is C2 80 to C2 9F in UTF-8.
    const bool control =
        first < ' ' || first == 0x7F ||
        (length == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0);
    const size_t taken = std::max<size_t>(length, 1);
    if (length == 0 || control) {
      for (size_t i = 0; i < taken; ++i)
        result += Print("\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(text[i])));
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(taken);
  }
  return result;
}

std::string FormatTable(const std::vector<FileReport> &files) {
  std::vector<Row> rows(1);
  std::copy(kTitles.begin(), kTitles.end(), rows[0].begin());
  for (const FileReport &file : files)
    for (size_t i = 0; i < file.streams.size(); ++i)
      rows.push_back(RowOf(file, i));
  if (rows.size() == 1)
    return {};

  std::array<size_t, kColumns> widths{};
  for (const Row &row : rows)
    for (size_t i = 0; i < kColumns; ++i)
      widths[i] = std::max(widths[i], Width(row[i]));

  std::string text;
  for (const Row &row : rows) {
    for (size_t i = 0; i < kColumns; ++i) {
      const std::string space(widths[i] - Width(row[i]), ' ');
      if (i > 0)
        text += "  ";
      text += kRight[i] ? space + row[i] : row[i] + space;
    }
    text += '\n';
  }
  return text;
}

}  // namespace kelstream
