// What tests of the H.264 splitter have in common.
#pragma once

#include <gtest/gtest.h>

#include <string_view>

#include "builders.h"
#include "h264_splitter.h"
#include "recorder.h"

namespace kelstream_test {

inline Recorder Found(const H264Stream &stream) {
  return Split<kelstream::H264Splitter>(stream.bytes());
}

// Splits, expects everything to be in order and in units, and returns it.
inline Recorder Intact(const H264Stream &stream) {
  Recorder result = Found(stream);
  EXPECT_EQ(result.Remarks(), "");
  EXPECT_EQ(result.All(), stream.bytes());
  uint64_t offset = 0;
  for (size_t i = 0; i < result.units.size(); ++i) {
    EXPECT_EQ(result.units[i].offset, offset);
    EXPECT_EQ(result.units[i].size, result.contents[i].size());
    EXPECT_TRUE(result.units[i].readable);
    offset += result.units[i].size;
  }
  return result;
}

inline bool Tells(const Recorder &result, std::string_view text) {
  return result.Remarks().find(text) != std::string::npos;
}

}  // namespace kelstream_test
