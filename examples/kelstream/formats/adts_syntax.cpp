// Headers of AAC in ADTS, the program config element, tags.

#include "adts_syntax.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace kelstream::adts {

namespace {

constexpr uint32_t kSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                     22050, 16000, 12000, 11025, 8000,  7350};

// Elements of a raw data block.
enum Element : uint32_t { kDataStream = 4, kProgramConfig = 5, kFill = 6 };

void SkipDataStream(BitReader &bits) {
  bits.Skip(4);  // tag
  const bool align = bits.Flag();
  uint32_t count = bits.Bits(8);
  if (count == 255)
    count += bits.Bits(8);
  if (align)
    bits.ByteAlign();
  bits.Skip(uint64_t{count} * 8);
}

void SkipFill(BitReader &bits) {
  uint32_t count = bits.Bits(4);
  if (count == 15)
    count += bits.Bits(8) - 1;
  bits.Skip(uint64_t{count} * 8);
}

uint32_t ParseProgramConfig(BitReader &bits) {
  bits.Skip(4 + 2 + 4);  // tag, object type, sampling frequency
  // Front, side and back elements are single channels or pairs.
  uint32_t elements = 0;
  for (int group = 0; group < 3; ++group)
    elements += bits.Bits(4);
  const uint32_t low_frequency = bits.Bits(2);
  bits.Skip(3 + 4);  // associated data, coupling channels
  if (bits.Flag())
    bits.Skip(4);  // mono mixdown
  if (bits.Flag())
    bits.Skip(4);  // stereo mixdown
  if (bits.Flag())
    bits.Skip(3);  // matrix mixdown
  uint32_t channels = low_frequency;
  for (uint32_t i = 0; i < elements; ++i) {
    channels += bits.Flag() ? 2 : 1;
    bits.Skip(4);
  }
  return channels;
}

}  // namespace

size_t Header::DataOffset() const {
  constexpr size_t kWord = 2;
  // With several blocks the positions of all but the first come before the CRC.
  return kHeaderSize + (crc ? kWord * blocks : 0);
}

std::optional<Header> ParseHeader(const uint8_t *data) {
  if (data[0] != 0xFF || (data[1] & 0xF6) != 0xF0)  // sync word; layer is 0
    return std::nullopt;
  Header header;
  // 28 bits, of which the home and copyright bits are the last.
  header.fixed = uint32_t{data[0]} << 24 | uint32_t{data[1]} << 16 | uint32_t{data[2]} << 8 |
                 (data[3] & 0xF0u);
  header.mpeg2 = (data[1] & 8) != 0;
  header.crc = (data[1] & 1) == 0;
  header.profile = data[2] >> 6;
  const uint32_t rate = data[2] >> 2 & 15;
  if (rate >= std::size(kSampleRates))
    return std::nullopt;
  header.sample_rate = kSampleRates[rate];
  header.channel_configuration = (data[2] & 1u) << 2 | data[3] >> 6;
  header.frame_length = (data[3] & 3u) << 11 | uint32_t{data[4]} << 3 | data[5] >> 5;
  header.blocks = 1 + (data[6] & 3u);
  if (header.frame_length < header.DataOffset())
    return std::nullopt;
  return header;
}

uint32_t ChannelsOf(uint32_t channel_configuration) {
  return channel_configuration == 7 ? 8 : channel_configuration;
}

std::optional<uint32_t> ChannelsOfProgram(const PaddedBytes &block) {
  BitReader bits(block);
  while (!bits.Failed()) {
    switch (bits.Bits(3)) {
      case kDataStream:
        SkipDataStream(bits);
        break;
      case kFill:
        SkipFill(bits);
        break;
      case kProgramConfig: {
        const uint32_t channels = ParseProgramConfig(bits);
        if (bits.Failed())
          return std::nullopt;
        return channels;
      }
      default:
        return std::nullopt;
    }
  }
  return std::nullopt;
}

StreamFormat FormatOf(const Header &header, const PaddedBytes &frame) {
  StreamFormat format;
  format.codec = Codec::kAac;
  constexpr const char *kProfiles[] = {"Main", "LC", "SSR", "LTP"};
  // MPEG-2 has no fourth profile.
  const std::string profile = header.mpeg2 && header.profile == 3
                                  ? std::to_string(header.profile)
                                  : kProfiles[header.profile];
  std::snprintf(format.profile, sizeof format.profile, "%s", profile.c_str());
  format.sample_rate = header.sample_rate;
  format.channels = ChannelsOf(header.channel_configuration);
  if (format.channels == 0 && frame.size() > header.DataOffset()) {
    const PaddedBytes block(frame.data() + header.DataOffset(),
                            frame.size() - header.DataOffset());
    format.channels = ChannelsOfProgram(block).value_or(0);
  }
  return format;
}

std::optional<uint64_t> Id3TagSize(const uint8_t *data) {
  const PaddedBytes bytes(data, kId3HeaderSize);
  ByteReader reader(bytes);
  for (const char letter : {'I', 'D', '3'})
    if (reader.Byte() != static_cast<uint8_t>(letter))
      return std::nullopt;
  constexpr uint32_t kUnused = 0xFF;
  if (reader.Byte() == kUnused || reader.Byte() == kUnused)
    return std::nullopt;
  constexpr uint32_t kHasFooter = 0x10;
  const bool footer = (reader.Byte() & kHasFooter) != 0;
  uint64_t size = 0;
  for (int i = 0; i < 4; ++i) {
    const uint32_t byte = reader.Byte();  // seven bits each
    if (byte > 127)
      return std::nullopt;
    size = size << 7 | byte;
  }
  return size + kId3HeaderSize + (footer ? kId3HeaderSize : 0);
}

bool IsId3v1(const uint8_t *data) {
  return std::memcmp(data, "TAG", 3) == 0;
}

}  // namespace kelstream::adts
