// The report as a JSON document.

#include <cstdio>

#include "frame_list.h"
#include "report.h"
#include "utf8.h"

namespace kelstream {

namespace {

// 0 stands for what is not known.
std::string NumberOrNull(uint64_t number) {
  return number != 0 ? std::to_string(number) : "null";
}

std::string Hex(uint32_t number) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", unsigned{number});
  return text;
}

std::string Details(const StreamReport &stream) {
  const StreamFormat &format = stream.format;
  if (format.codec == Codec::kOther)
    return ",\"codec\":null,\"stream_type\":" + std::to_string(stream.info.type);
  const bool video = format.codec == Codec::kH264;
  std::string text = ",\"codec\":";
  text += video ? "\"h264\"" : "\"aac\"";
  text += ",\"profile\":";
  text += format.profile[0] != 0 ? JsonString(format.profile) : "null";
  if (video) {
    text += ",\"width\":" + NumberOrNull(format.width);
    text += ",\"height\":" + NumberOrNull(format.height);
  } else {
    text += ",\"sample_rate\":" + NumberOrNull(format.sample_rate);
    text += ",\"channels\":" + NumberOrNull(format.channels);
  }
  text += ",\"frames\":" + std::to_string(stream.frames);
  if (video)
    text += ",\"keyframes\":" + std::to_string(stream.key_frames);
  return text;
}

std::string Time(bool known, int64_t pts) {
  return known ? std::to_string(pts) : "null";
}

std::string Stream(const StreamReport &stream) {
  std::string text = "{\"index\":" + std::to_string(stream.index) + ",\"pid\":";
  text += stream.info.has_pid ? std::to_string(stream.info.number) : "null";
  text += Details(stream);
  text += ",\"bytes\":" + std::to_string(stream.bytes);
  text += ",\"crc32\":\"" + Hex(stream.crc) + '"';
  if (stream.info.has_pid) {
    text += ",\"pts_first\":" + Time(stream.times.known, stream.times.first);
    text += ",\"pts_last\":" + Time(stream.times.known, stream.times.last);
  }
  return text + "}";
}

std::string Head(const FileReport &file) {
  return "{\"file\":" + JsonString(file.file) + ",\"container\":\"" + NameOf(file.container) +
         '"';
}

std::string Streams(const FileReport &file) {
  std::string text = ",\"streams\":[";
  for (const StreamReport &stream : file.streams) {
    if (stream.index > 0)
      text += ',';
    text += Stream(stream);
  }
  return text + "]}";
}

constexpr unsigned char kDelete = 0x7F;

void AppendControl(std::string &result, unsigned char character) {
  switch (character) {
    case '\n':
      result += "\\n";
      return;
    case '\r':
      result += "\\r";
      return;
    case '\t':
      result += "\\t";
      return;
    default:
      break;
  }
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\u%04x", unsigned{character});
  result += escape;
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const auto first = static_cast<unsigned char>(text.front());
    const size_t length = shared::Utf8Length(text);
    if (length == 0) {
      result += "\\ufffd";
    } else if (first == '"' || first == '\\') {
      result += '\\';
      result += text.front();
    } else if (first < ' ' || first == kDelete) {
      AppendControl(result, first);
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result + '"';
}

std::string FormatJson(const std::vector<FileReport> &files) {
  std::string text = "[";
  for (size_t i = 0; i < files.size(); ++i)
    text += (i > 0 ? ",\n " : "") + Head(files[i]) + Streams(files[i]);
  return text + "]\n";
}

std::string JsonFrame(const FrameReport &frame) {
  return "{\"stream\":" + std::to_string(frame.stream) +
         ",\"number\":" + std::to_string(frame.number) +
         ",\"offset\":" + std::to_string(frame.offset) +
         ",\"size\":" + std::to_string(frame.size) +
         ",\"key\":" + (frame.key ? "true" : "false") +
         ",\"pts\":" + Time(frame.has_pts, frame.pts) + "}";
}

std::string JsonFramesHead(const FileReport &file) {
  return Head(file) + ",\"frame_list\":[";
}

std::string JsonFramesEnd(const FileReport &file) {
  return "]" + Streams(file);
}

}  // namespace kelstream
