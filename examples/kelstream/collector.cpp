// The consumer's side.

#include "collector.h"

#include "trace.h"

namespace kelstream {

namespace {

void AddVideoDuration(StreamReport &stream) {
  const StreamFormat &format = stream.format;
  if (format.codec == Codec::kH264 && format.rate_numerator != 0)
    stream.seconds = static_cast<double>(stream.frames) * format.rate_denominator /
                     static_cast<double>(format.rate_numerator);
}

}  // namespace

EndOfFile Collector::Collect(FileReport &report) {
  StreamReport stream;
  bool has_stream = false;
  for (;;) {
    Message *const message = exchange_.Receive();
    switch (message->Kind()) {
      case kUnitBytes:
        OnUnitBytes(*message, stream);
        break;
      case kFormat:
        stream.format = message->Get<StreamFormat>();
        has_stream = true;
        break;
      case kRemark:
        OnRemark(*message, report);
        break;
      case kEndOfFile: {
        const auto end = message->Get<EndOfFile>();
        exchange_.GiveBack(message);
        report.container = end.container;
        report.damaged = end.damaged;
        report.remarks_left_out = end.remarks_left_out;
        AddVideoDuration(stream);
        if (has_stream)
          report.streams.push_back(stream);
        return end;
      }
      default:
        KELSTREAM_TRACE(KEL_LEVEL_ERROR, "message of kind %u\n", message->Kind());
        break;
    }
    exchange_.GiveBack(message);
  }
}

void Collector::OnUnitBytes(const Message &message, StreamReport &stream) {
  if ((message.word & kFirstFragment) != 0)
    unit_bytes_ = 0;
  unit_bytes_ += message.size;
  if ((message.word & kLastFragment) == 0)
    return;
  const Unit &unit = message.unit;
  KELSTREAM_TRACE(KEL_LEVEL_TRACE, "unit at %llu: %llu bytes%s\n",
                  static_cast<unsigned long long>(unit.offset),
                  static_cast<unsigned long long>(unit.size), unit.key ? ", key" : "");
  if (unit_bytes_ != unit.size)
    KELSTREAM_TRACE(KEL_LEVEL_ERROR, "unit of %llu bytes came with %llu\n",
                    static_cast<unsigned long long>(unit.size),
                    static_cast<unsigned long long>(unit_bytes_));
  AddUnit(unit, stream);
  progress_.Update(unit.offset + unit.size);
}

void Collector::AddUnit(const Unit &unit, StreamReport &stream) {
  if (!unit.readable)
    return;
  stream.bytes += unit_bytes_;
  stream.frames += unit.frame ? 1 : 0;
  stream.key_frames += unit.key ? 1 : 0;
  if (unit.sample_rate != 0)
    AddSound(unit, stream);
}

void Collector::AddSound(const Unit &unit, StreamReport &stream) {
  if (unit.sample_rate != sample_rate_) {
    seconds_before_ = stream.seconds;
    samples_ = 0;
    sample_rate_ = unit.sample_rate;
  }
  samples_ += unit.samples;
  stream.seconds = seconds_before_ + static_cast<double>(samples_) / sample_rate_;
}

void Collector::OnRemark(const Message &message, FileReport &report) {
  report.remarks.push_back(
      {message.severity, message.offset,
       std::string(reinterpret_cast<const char *>(message.bytes), message.size)});
}

}  // namespace kelstream
