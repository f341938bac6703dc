// The report as a JSON document.

#include <cstdio>

#include "report.h"
#include "utf8.h"

namespace kelstream {

namespace {

// 0 stands for what is not known.
std::string NumberOrNull(uint64_t number) {
  return number != 0 ? std::to_string(number) : "null";
}

std::string Stream(const StreamReport &stream, size_t index) {
  const StreamFormat &format = stream.format;
  const bool video = format.codec == Codec::kH264;
  std::string text = "{\"index\":" + std::to_string(index) + ",\"pid\":null,\"codec\":";
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
  return text + ",\"bytes\":" + std::to_string(stream.bytes) + "}";
}

std::string File(const FileReport &file) {
  std::string text = "{\"file\":" + JsonString(file.file) + ",\"container\":\"" +
                     NameOf(file.container) + "\",\"streams\":[";
  for (size_t i = 0; i < file.streams.size(); ++i) {
    if (i > 0)
      text += ',';
    text += Stream(file.streams[i], i);
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
    const size_t length = Utf8Length(text);
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
    text += (i > 0 ? ",\n " : "") + File(files[i]);
  return text + "]\n";
}

}  // namespace kelstream
