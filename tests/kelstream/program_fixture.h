// What tests of the whole program have in common.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "builders.h"
#include "program.h"

namespace kelstream_test {

inline std::string MediaPath(const std::string &name) {
  return std::string(KELSTREAM_MEDIA) + "/" + name;
}

// Sums are compared apart, where the bytes that they cover are known.
inline std::string WithoutSums(std::string text) {
  const std::string begin = ",\"crc32\":\"";
  constexpr size_t kDigits = 8;
  for (size_t at = 0; (at = text.find(begin, at)) != std::string::npos;)
    text.erase(at, begin.size() + kDigits + 1);
  return text;
}

inline std::string Sum(const std::string &data) {
  uint32_t crc = ~0u;
  for (const char character : data) {
    crc ^= static_cast<uint8_t>(character);
    for (int i = 0; i < 8; ++i)
      crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320u : crc >> 1;
  }
  char text[9];
  std::snprintf(text, sizeof text, "%08x", ~crc);
  return text;
}

inline std::string VideoStream(int frames, int key_frames, uint64_t bytes) {
  return "{\"index\":0,\"pid\":null,\"codec\":\"h264\",\"profile\":\"High\",\"width\":640,"
         "\"height\":360,\"frames\":" +
         std::to_string(frames) + ",\"keyframes\":" + std::to_string(key_frames) +
         ",\"bytes\":" + std::to_string(bytes) + "}";
}

inline std::string SoundStream(int frames, uint64_t bytes) {
  return "{\"index\":0,\"pid\":null,\"codec\":\"aac\",\"profile\":\"LC\",\"sample_rate\":48000,"
         "\"channels\":2,\"frames\":" +
         std::to_string(frames) + ",\"bytes\":" + std::to_string(bytes) + "}";
}

inline std::string File(const std::string &path, const std::string &container,
                        const std::string &streams) {
  return "{\"file\":\"" + path + "\",\"container\":\"" + container + "\",\"streams\":[" +
         streams + "]}";
}

inline std::string Document(const std::string &file) {
  return "[" + file + "]\n";
}

inline bool Contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

class ProgramTest : public testing::Test {
 protected:
  void SetUp() override {
    video_ = ReadFile(MediaPath("bars.h264"));
    sound_ = ReadFile(MediaPath("tone.aac"));
    ASSERT_EQ(video_.size(), 301289u);
    ASSERT_EQ(sound_.size(), 98543u);
  }

  // Runs on these bytes, expects the exit status and this one stream.
  void ExpectStream(const std::string &data, int status, const std::string &container,
                    const std::string &stream) {
    const std::string path = temp_.Write("stream", data);
    const Result result = RunProgram({"--json", path});
    EXPECT_EQ(result.status, status) << result.err;
    EXPECT_EQ(WithoutSums(result.out), Document(File(path, container, stream))) << result.err;
    // Tags around a stream are none of its bytes.
    const bool all = Contains(stream, "\"bytes\":" + std::to_string(data.size()) + "}");
    EXPECT_TRUE(!all || Contains(result.out, ",\"crc32\":\"" + Sum(data) + "\"}"))
        << result.out;
    EXPECT_EQ(result.err.empty(), status == 0) << result.err;
    error_ = result.err;
  }
  void ExpectVideo(const std::string &data, int status, int frames, int keys, uint64_t bytes) {
    ExpectStream(data, status, "h264", VideoStream(frames, keys, bytes));
  }
  void ExpectSound(const std::string &data, int status, int frames, uint64_t bytes) {
    ExpectStream(data, status, "adts", SoundStream(frames, bytes));
  }
  // The offsets at which the sample's frames begin.
  std::vector<size_t> SoundFrames() const {
    std::vector<size_t> offsets;
    const auto byte = [&](size_t at) { return static_cast<uint8_t>(sound_[at]); };
    for (size_t at = 0; at < sound_.size();
         at += (byte(at + 3) & 3u) << 11 | size_t{byte(at + 4)} << 3 | byte(at + 5) >> 5)
      offsets.push_back(at);
    return offsets;
  }

  TempDirectory temp_;
  std::string video_, sound_, error_;
};

}  // namespace kelstream_test
