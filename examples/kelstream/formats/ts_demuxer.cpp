// Takes an MPEG transport stream apart.

#include "ts_demuxer.h"

#include <algorithm>

namespace kelstream::ts {

namespace {

constexpr uint32_t kCounters = 16;

Codec CodecOf(uint32_t type) {
  constexpr uint32_t kAdtsAac = 0x0F, kH264 = 0x1B;
  switch (type) {
    case kAdtsAac:
      return Codec::kAac;
    case kH264:
      return Codec::kH264;
    default:
      return Codec::kOther;
  }
}

}  // namespace

TsDemuxer::TsDemuxer(StreamSink &sink, uint64_t offset) : sink_(sink), offset_(offset) {
  pids_[kPatPid] = std::make_unique<Pid>();
  pids_[kPatPid]->sections = std::make_unique<SectionAssembler>();
}

void TsDemuxer::Survey(const uint8_t *data, size_t size, bool whole) {
  surveying_ = true;
  size_t at = 0;
  while (FindPackets(data, size, whole, at, size, at) == Answer::kYes) {
    for (; at + kPacketSize <= size && data[at] == kSyncByte; at += kPacketSize)
      if (const auto packet = ParsePacket(data + at); packet && !packet->error)
        ReadTable(*packet);
  }
  surveying_ = false;
  for (const auto &pid : pids_)
    if (pid != nullptr && pid->sections != nullptr)
      pid->sections->OnGap();
}

void TsDemuxer::ReadTable(const Packet &packet) {
  const auto &pid = pids_[packet.pid];
  if (pid == nullptr || pid->sections == nullptr || packet.payload == nullptr)
    return;
  table_pid_ = packet.pid;
  pid->sections->Feed(packet.payload, packet.payload_size, packet.start, *this);
}

void TsDemuxer::OnSection(const std::vector<uint8_t> &section, bool intact) {
  if (!intact) {
    if (!surveying_)
      Damage(offset_, "a table on PID " + std::to_string(table_pid_) + " is damaged");
    return;
  }
  if (table_pid_ == kPatPid) {
    for (const Program &program : ParsePat(section))
      AddProgram(program);
  } else {
    for (const MapEntry &entry : ParsePmt(section))
      AddStream(entry);
  }
}

void TsDemuxer::AddProgram(const Program &program) {
  auto &pid = pids_[program.map_pid];
  if (pid != nullptr || program.map_pid == kNullPid)
    return;
  pid = std::make_unique<Pid>();
  pid->sections = std::make_unique<SectionAssembler>();
}

void TsDemuxer::AddStream(const MapEntry &entry) {
  auto &pid = pids_[entry.pid];
  if (pid == nullptr && entry.pid != kNullPid) {
    pid = std::make_unique<Pid>();
    const StreamInfo info{entry.pid, true, entry.type, CodecOf(entry.type)};
    streams_.push_back(std::make_unique<TsStream>(sink_, info));
    pid->stream = streams_.back().get();
  } else if (pid != nullptr && pid->stream != nullptr && !pid->type_changed &&
             pid->stream->info().type != entry.type) {
    pid->type_changed = true;
    sink_.OnRemark(Severity::kNote, offset_,
                   "PID " + std::to_string(entry.pid) + ": the type changes from " +
                       std::to_string(pid->stream->info().type) + " to " +
                       std::to_string(entry.type) + ", which is not followed");
  }
}

size_t TsDemuxer::Take(const uint8_t *data, size_t size, bool whole) {
  const uint64_t begin = offset_;
  size_t at = 0;
  const auto move_to = [&](size_t place) {
    at = place;
    offset_ = begin + place;
  };
  while (at < size) {
    if (searching_) {
      size_t found = at;
      const Answer answer = FindPackets(data, size, whole, at, size, found);
      move_to(found);
      if (answer == Answer::kWait)
        return at;
      if (answer == Answer::kYes)
        EndSearch(true);
      continue;
    }
    if (data[at] != kSyncByte) {
      searching_ = true;
      lost_at_ = offset_;
      continue;
    }
    // The byte behind a packet tells whether it is whole.
    if (size - at <= kPacketSize && !whole)
      return at;
    if (size - at < kPacketSize) {
      Damage(offset_, "the file ends within a packet: " + std::to_string(size - at) + " of " +
                          std::to_string(kPacketSize) + " bytes");
      move_to(size);
      return at;
    }
    if (size - at > kPacketSize && data[at + kPacketSize] != kSyncByte) {
      size_t found = 0;
      const Answer answer = FindPackets(data, size, whole, at + 1, at + kPacketSize, found);
      if (answer == Answer::kWait)
        return at;
      if (answer == Answer::kYes) {
        Damage(offset_, "packet is cut: another one begins after " +
                            std::to_string(found - at) + " of its bytes");
        move_to(found);
        continue;
      }
    }
    OnPacket(data + at);
    move_to(at + kPacketSize);
  }
  return at;
}

void TsDemuxer::EndSearch(bool found) {
  searching_ = false;
  const std::string count = std::to_string(offset_ - lost_at_);
  if (!found)
    Damage(lost_at_, "no packet in the last " + count + " bytes");
  else if (any_)
    Damage(lost_at_, count + " bytes skipped up to the next packet");
  else
    Damage(lost_at_, count + " bytes before the first packet");
}

// False for a packet that is there twice.
bool TsDemuxer::Follows(Pid &pid, const Packet &packet) {
  const auto last = pid.counter;
  pid.counter = packet.counter;
  if (!last || packet.discontinuity || packet.counter == (*last + 1) % kCounters) {
    pid.duplicate = false;
    return true;
  }
  if (packet.counter == *last && !pid.duplicate) {
    pid.duplicate = true;
    return false;
  }
  pid.duplicate = false;
  const uint32_t missing = (packet.counter + kCounters - *last - 1) % kCounters;
  Damage(offset_, "PID " + std::to_string(packet.pid) + ": packets are missing, " +
                      std::to_string(missing) + " or " + std::to_string(missing + kCounters) +
                      " or more");
  if (pid.stream != nullptr)
    pid.stream->OnGap();
  if (pid.sections != nullptr)
    pid.sections->OnGap();
  return true;
}

void TsDemuxer::OnPacket(const uint8_t *data) {
  any_ = true;
  const auto packet = ParsePacket(data);
  if (!packet || packet->error) {
    Damage(offset_, packet ? "packet is marked as damaged" : "packet header is damaged");
    return;
  }
  const auto &pid = pids_[packet->pid];
  if (pid == nullptr || packet->payload == nullptr || !Follows(*pid, *packet))
    return;
  if (packet->scrambled) {
    if (!pid->scrambled)
      sink_.OnRemark(Severity::kNote, offset_,
                     "PID " + std::to_string(packet->pid) + ": scrambled, not read");
    pid->scrambled = true;
    return;
  }
  if (pid->stream != nullptr)
    pid->stream->OnPayload(offset_ + static_cast<uint64_t>(packet->payload - data),
                           packet->payload, packet->payload_size, packet->start);
  else
    ReadTable(*packet);
}

void TsDemuxer::Finish() {
  if (searching_)
    EndSearch(false);
  for (const auto &stream : streams_)
    stream->Finish(offset_);
  if (streams_.empty())
    Damage(offset_, "no programme map, so the streams are not known");
}

}  // namespace kelstream::ts
