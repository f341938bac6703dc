// What was found out about a file, and the two forms in which it is printed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "probe.h"
#include "stream.h"

namespace kelstream {

struct Remark {
  Severity severity;
  uint64_t offset;
  std::string text;
};

struct StreamReport {
  uint32_t index = 0;  // in the file
  StreamInfo info;
  StreamFormat format;
  uint64_t frames = 0;
  uint64_t key_frames = 0;
  uint64_t bytes = 0;
  uint32_t crc = 0;    // CRC-32 of these bytes
  PtsRange times;      // of a transport stream
  double seconds = 0;  // 0 while unknown
};

struct FrameReport {
  uint32_t stream = 0;  // its index
  uint64_t number = 0;  // in the stream, from 0
  uint64_t offset = 0;  // of its first byte in the file
  uint64_t size = 0;    // bytes of the elementary stream
  bool key = false;
  bool has_pts = false;
  int64_t pts = 0;  // 90 kHz
};

struct FileReport {
  std::string file;
  Container container = Container::kUnknown;
  std::vector<StreamReport> streams;
  // The first of them; damaged files may give any number.
  std::vector<Remark> remarks{};
  uint64_t remarks_left_out = 0;
  bool damaged = false;
};

// Complete texts, line ends included.
std::string FormatTable(const std::vector<FileReport> &files);
std::string FormatJson(const std::vector<FileReport> &files);

// Names of what a stream is, for people.
std::string CodecName(const StreamReport &stream);
std::string FormatText(const StreamReport &stream);

// The same in pieces, for what is too long to be kept: the frames of a file.
class FrameList {
 public:
  explicit FrameList(bool json) : json_(json) {}
  std::string Frame(const FileReport &file, const FrameReport &frame);
  std::string EndFile(const FileReport &file);
  std::string End();

 private:
  bool json_;
  bool file_begun_ = false;
  bool any_ = false;  // of the files
};

// A JSON string with its quotes. What is not UTF-8 becomes U+FFFD.
std::string JsonString(std::string_view text);

// A file name for people: nothing in it moves the cursor.
std::string Printable(std::string_view text);

}  // namespace kelstream
