// What tests of the whole program have in common.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "builders.h"
#include "program.h"

namespace kelstream_test {

inline std::string MediaPath(const std::string &name) {
  return std::string(KELSTREAM_MEDIA) + "/" + name;
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
    EXPECT_EQ(result.out, Document(File(path, container, stream))) << result.err;
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
