// Builds transport streams for the tests.

#include "ts_builder.h"

#include <algorithm>

#include "builders.h"

namespace kelstream_test {

namespace {

constexpr size_t kPacket = 188;

// Written out, so as not to be checked with the code under test.
uint32_t Crc(const Bytes &data) {
  uint32_t crc = ~0u;
  for (const uint8_t byte : data) {
    crc ^= uint32_t{byte} << 24;
    for (int i = 0; i < 8; ++i)
      crc = (crc & 0x80000000u) != 0 ? crc << 1 ^ 0x04C11DB7u : crc << 1;
  }
  return crc;
}

void Put(Bytes &to, uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i)
    to += static_cast<uint8_t>(value >> (8 * i));
}

Bytes Finish(uint8_t table, uint32_t id, bool current, const Bytes &body) {
  constexpr size_t kRest = 9;  // of the header behind the length, and the checksum
  Bytes section;
  section += table;
  Put(section, 0xB000 | (body.size() + kRest), 2);
  Put(section, id, 2);
  section += static_cast<uint8_t>(current ? 0xC1 : 0xC0);
  Put(section, 0, 2);
  section += body;
  Put(section, Crc(section), 4);
  return section;
}

Bytes Time(uint8_t prefix, int64_t time, bool bad_marker) {
  const auto value = static_cast<uint64_t>(time);
  Bytes bytes;
  bytes += static_cast<uint8_t>(prefix << 4 | (value >> 30 & 7) << 1 | 1);
  Put(bytes, (value >> 15 & 0x7FFF) << 1 | (bad_marker ? 0 : 1), 2);
  Put(bytes, (value & 0x7FFF) << 1 | 1, 2);
  return bytes;
}

}  // namespace

Bytes Pes(const PesFields &fields, const Bytes &payload) {
  Bytes times;
  if (fields.pts)
    times += Time(fields.dts ? 3 : 2, *fields.pts, fields.bad_marker);
  if (fields.dts)
    times += Time(1, *fields.pts, false);
  times += Bytes(fields.stuffing, 0xFF);
  Bytes packet = {0, 0, 1, fields.stream_id};
  const size_t length = 3 + times.size() + payload.size();
  Put(packet, fields.bounded ? length + static_cast<size_t>(fields.extra_length) : 0, 2);
  packet += 0x80;
  packet += static_cast<uint8_t>(fields.dts ? 0xC0 : fields.pts ? 0x80 : 0);
  packet += static_cast<uint8_t>(times.size());
  return packet + times + payload;
}

Bytes PatSection(const std::vector<std::pair<uint32_t, uint32_t>> &programs) {
  Bytes body;
  for (const auto &[number, pid] : programs) {
    Put(body, number, 2);
    Put(body, 0xE000 | pid, 2);
  }
  return Finish(0, 1, true, body);
}

Bytes PmtSection(uint32_t program, const std::vector<std::pair<uint32_t, uint32_t>> &streams,
                 bool current, size_t descriptors) {
  Bytes body;
  Put(body, 0xFFFF, 2);
  Put(body, 0xF000 | descriptors, 2);
  body += Bytes(descriptors, 0x11);
  for (const auto &[type, pid] : streams) {
    body += static_cast<uint8_t>(type);
    Put(body, 0xE000 | pid, 2);
    Put(body, 0xF000 | descriptors, 2);
    body += Bytes(descriptors, 0x22);
  }
  return Finish(2, program, current, body);
}

TsStreamBuilder &TsStreamBuilder::Payload(uint32_t pid, const Bytes &payload, bool start) {
  constexpr size_t kRoom = kPacket - 4;
  for (size_t at = 0; at < payload.size(); start = false) {
    const size_t take = std::min(kRoom, payload.size() - at);
    Bytes packet = {0x47};
    Put(packet, (start ? 0x4000u : 0u) | pid, 2);
    uint8_t &count = counters_[pid];
    packet += static_cast<uint8_t>((take < kRoom ? 0x30 : 0x10) | (count++ & 15));
    if (take < kRoom) {
      const size_t field = kRoom - take - 1;
      packet += static_cast<uint8_t>(field);
      if (field > 0)
        packet += uint8_t{0} + Bytes(field - 1, 0xFF);
    }
    bytes_ += packet + payload.substr(at, take);
    at += take;
  }
  return *this;
}

TsStreamBuilder &TsStreamBuilder::Section(uint32_t pid, const Bytes &section) {
  return Payload(pid, uint8_t{0} + section);
}

TsStreamBuilder SampleProgramme(int pictures) {
  TsStreamBuilder stream;
  stream.Pat({{1, 4096}}).Pmt(4096, {{0x1B, 256}, {0x0F, 257}});
  H264Stream video;
  video.Parameters().Idr();
  size_t begin = 0;
  for (int i = 0; i < pictures; ++i) {
    if (i > 0)
      video.P(static_cast<uint32_t>(i % 16), static_cast<uint32_t>(2 * i % 256));
    stream.Payload(256, Pes({.pts = 90000 + 3600 * i}, video.bytes().substr(begin)));
    begin = video.size();
    stream.Payload(257, Pes({.stream_id = 0xC0, .pts = 90000 + 1920 * i, .bounded = true},
                            AdtsFrames({}, 2)));
  }
  return stream;
}

}  // namespace kelstream_test
