// Headers of AAC in ADTS, the program config element, and the tags that music
// files carry around the stream. Parsers only, no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "bit_reader.h"
#include "stream.h"

namespace kelstream::adts {

inline constexpr size_t kHeaderSize = 7;
inline constexpr size_t kMaxFrame = 8191;  // 13 bits of length

struct Header {
  uint32_t fixed = 0;  // the part that is the same in all frames of a stream
  bool mpeg2 = false;
  bool crc = false;
  uint32_t profile = 0;
  uint32_t sample_rate = 0;
  uint32_t channel_configuration = 0;
  uint32_t frame_length = 0;  // bytes, header included
  uint32_t blocks = 1;        // raw data blocks

  // Bytes in front of the first raw data block.
  size_t DataOffset() const;
};

// `data` holds kHeaderSize bytes.
std::optional<Header> ParseHeader(const uint8_t *data);

// The channels of a configuration; 0 for the one that a program config element
// describes.
uint32_t ChannelsOf(uint32_t channel_configuration);

// The channels that the program config element in front of a raw data block
// tells, if there is one.
std::optional<uint32_t> ChannelsOfProgram(const PaddedBytes &block);

// What to report of a stream that begins with this frame.
StreamFormat FormatOf(const Header &header, const PaddedBytes &frame);

// ID3v2: the bytes of the whole tag, if there is one. `data` holds
// kId3HeaderSize bytes.
inline constexpr size_t kId3HeaderSize = 10;
std::optional<uint64_t> Id3TagSize(const uint8_t *data);

// ID3v1: a block of this size that begins with "TAG".
inline constexpr size_t kId3v1Size = 128;
bool IsId3v1(const uint8_t *data);

}  // namespace kelstream::adts
