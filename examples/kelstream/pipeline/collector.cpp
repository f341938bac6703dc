// The second reader of the media buffer pool: statistics.

#include "collector.h"

#include <algorithm>

#include "trace.h"

namespace kelstream {

EndOfFile Collector::Collect(FileReport &report) {
  streams_.Clear();
  offset_ = 0;
  for (;;) {
    const Message *const message = pool_.Receive(Consumer::kStatistics);
    observer_.OnProgress(report, offset_);
    if (message == nullptr)
      continue;
    const bool at_end = message->word == kEndOfFile;
    const EndOfFile end = message->end;
    OnMessage(*message, report);
    pool_.Release(Consumer::kStatistics, *message);
    if (!at_end)
      continue;
    report.container = end.container;
    report.damaged = end.damaged;
    report.remarks_left_out = end.remarks_left_out;
    Finish(report);
    return end;
  }
}

void Collector::OnMessage(const Message &message, FileReport &report) {
  Record *record = streams_.Find(message.stream);
  switch (message.word) {
    case kStream:
      record = &streams_.Add(message.stream);
      record->report.index = static_cast<uint32_t>(streams_.records().size() - 1);
      record->report.info = message.info;
      record->report.format.codec = message.info.codec;
      report.container = message.end.container;
      if (message.info.codec == Codec::kOther)
        observer_.OnStreamFound(report, record->report);
      return;
    case kRemark:
      report.remarks.push_back({message.severity, message.offset, message.text});
      return;
    case kEndOfFile:
      return;
    default:
      break;
  }
  if (record == nullptr) {
    KELSTREAM_TRACE(KEL_LEVEL_ERROR, "message of kind %u about no stream\n", message.word);
    return;
  }
  switch (message.word) {
    case kFormat:
      record->report.format = message.format;
      observer_.OnStreamFound(report, record->report);
      break;
    case kUnits:
      for (uint32_t i = 0; i < message.unit_count; ++i)
        AddUnit(message.units[i], *record, report);
      break;
    case kTimes:
      record->report.times = message.times;
      break;
    default:
      KELSTREAM_TRACE(KEL_LEVEL_ERROR, "message of kind %u\n", message.word);
      break;
  }
}

void Collector::AddUnit(const Unit &unit, Record &record, const FileReport &report) {
  KELSTREAM_TRACE(KEL_LEVEL_TRACE, "unit at %llu: %llu bytes%s\n",
                  static_cast<unsigned long long>(unit.offset),
                  static_cast<unsigned long long>(unit.size), unit.key ? ", key" : "");
  offset_ = std::max(offset_, unit.offset + unit.size);
  if (!unit.readable)
    return;
  StreamReport &stream = record.report;
  stream.bytes += unit.size;
  if (unit.frame) {
    EndFrame(record, report);
    record.has_frame = true;
    record.frame = {.stream = stream.index,
                    .number = stream.frames,
                    .offset = unit.offset,
                    .size = unit.size,
                    .key = unit.key || stream.format.codec == Codec::kAac,
                    .has_pts = unit.has_pts,
                    .pts = unit.pts};
    ++stream.frames;
    stream.key_frames += unit.key ? 1 : 0;
  } else if (unit.second_field && record.has_frame) {
    record.frame.size += unit.size;
  }
  if (unit.sample_rate != 0)
    AddSound(unit, record);
}

void Collector::AddSound(const Unit &unit, Record &record) {
  StreamReport &stream = record.report;
  if (unit.sample_rate != record.sample_rate) {
    record.seconds_before = stream.seconds;
    record.samples = 0;
    record.sample_rate = unit.sample_rate;
  }
  record.samples += unit.samples;
  stream.seconds =
      record.seconds_before + static_cast<double>(record.samples) / record.sample_rate;
}

void Collector::EndFrame(Record &record, const FileReport &report) {
  if (record.has_frame)
    observer_.OnFrame(report, record.frame);
  record.has_frame = false;
}

void Collector::Finish(FileReport &report) {
  for (Record *record : streams_.records()) {
    EndFrame(*record, report);
    StreamReport &stream = record->report;
    const StreamFormat &format = stream.format;
    constexpr double kTicksPerSecond = 90000;
    if (stream.info.has_pid)
      stream.seconds =
          static_cast<double>(stream.times.last - stream.times.first) / kTicksPerSecond;
    else if (format.rate_numerator != 0)
      stream.seconds = static_cast<double>(stream.frames) * format.rate_denominator /
                       static_cast<double>(format.rate_numerator);
    report.streams.push_back(stream);
  }
}

}  // namespace kelstream
