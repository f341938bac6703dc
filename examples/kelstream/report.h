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
  StreamFormat format;
  uint64_t frames = 0;
  uint64_t key_frames = 0;
  uint64_t bytes = 0;
  double seconds = 0;  // 0 while unknown
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

// A JSON string with its quotes. What is not UTF-8 becomes U+FFFD.
std::string JsonString(std::string_view text);

// A file name for people: nothing in it moves the cursor.
std::string Printable(std::string_view text);

}  // namespace kelstream
