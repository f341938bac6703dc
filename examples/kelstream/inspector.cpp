// Inspects one file.

#include "inspector.h"

#include <kelcore_file.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "digest.h"
#include "output.h"
#include "parser.h"
#include "progress.h"
#include "reader.h"
#include "stop.h"
#include "ticker.h"

namespace kelstream {

namespace {

struct CloseFile {
  void operator()(FILE *file) const { KEL_FileClose(file); }
};

std::string ErrorText(int error) {
  return std::strerror(error);
}

void PrintRemarks(const FileReport &report) {
  const std::string name = Printable(report.file);
  for (const Remark &remark : report.remarks) {
    const char *const kind = remark.severity == Severity::kDamage ? "warning: " : "note: ";
    Complain(kind + name + ": byte " + std::to_string(remark.offset) + ": " + remark.text);
  }
  if (report.remarks_left_out > 0)
    Complain("warning: " + name + ": and " + std::to_string(report.remarks_left_out) + " more");
}

// What is wrong with the file as a whole, or an empty text.
std::string Failure(const EndOfFile &end) {
  if (end.read_error != 0) {
    const std::string text = ErrorText(end.read_error);
    return end.size == 0 ? text : text + " after " + std::to_string(end.size) + " bytes";
  }
  if (end.size == 0)
    return "the file is empty";
  if (end.container == Container::kUnknown)
    return "not a stream that kelstream knows (H.264 byte stream, AAC in ADTS, MPEG-TS)";
  return {};
}

Outcome Fail(const FileReport &report, const std::string &text) {
  Complain(Printable(report.file) + ": " + text);
  return Outcome::kFailed;
}

const char *HowItEnded(Outcome outcome) {
  switch (outcome) {
    case Outcome::kGood:
      return "good";
    case Outcome::kDamaged:
      return "damaged";
    case Outcome::kFailed:
      break;
  }
  return "failed";
}

// Passes on what is found, and shows how far things are.
class Display : public Observer {
 public:
  Display(uint64_t size, Inspector::FrameSink &frames, Publisher &publisher)
      : frames_(frames),
        publisher_(publisher),
        progress_(size),
        ticker_(progress_.enabled() || publisher.open()) {}

  void OnStreamFound(const FileReport &file, const StreamReport &stream) override {
    publisher_.OnStreamFound(file, stream);
  }
  void OnFrame(const FileReport &file, const FrameReport &frame) override {
    publisher_.OnFrame(frame);
    frames_.OnFrame(file, frame);
  }
  void OnProgress(const FileReport &, uint64_t offset) override {
    if (StopRequested())
      Stop(publisher_);
    if (!ticker_.Due())
      return;
    progress_.Update(offset);
    publisher_.Update(offset);
  }

 private:
  Inspector::FrameSink &frames_;
  Publisher &publisher_;
  ProgressBar progress_;
  Ticker ticker_;
};

}  // namespace

Outcome Inspector::Inspect(const std::string &file, FileReport &report) {
  report.file = file;
  const std::string path = file == "-" ? "/dev/stdin" : file;
  KEL_FILE_ATTR attributes{};
  KEL_GetFileAttr(path.c_str(), &attributes);
  publisher_.BeginFile(attributes.size);
  Outcome outcome = Outcome::kFailed;
  {
    const std::unique_ptr<FILE, CloseFile> stream(
        KEL_FileOpen(path.c_str(), KEL_FILE_MODE_READ));
    outcome = stream == nullptr ? Fail(report, ErrorText(errno))
                                : InspectOpen(stream.get(), attributes.size, report);
  }
  publisher_.EndFile(report, HowItEnded(outcome));
  return outcome;
}

Outcome Inspector::InspectOpen(FILE *file, uint64_t size, FileReport &report) {
  EndOfFile end;
  if (!Collect(file, size, report, end))
    return Fail(report, "no thread to read it with");
  PrintRemarks(report);
  const std::string failure = Failure(end);
  if (!failure.empty())
    return Fail(report, failure);
  return report.damaged ? Outcome::kDamaged : Outcome::kGood;
}

bool Inspector::Collect(FILE *file, uint64_t size, FileReport &report, EndOfFile &end) {
  Display display(size, frames_, publisher_);
  StagingRing &ring = machinery_.ring();
  ring.Reset();
  Digest digest(machinery_.pool(), machinery_.workers());
  Reader reader(ring, file);
  Parser parser(ring, reader, machinery_.pool());
  if (!digest.Start())
    return false;
  const bool started = reader.Start() && parser.Start();
  if (!started) {
    // Nobody else will tell the readers of the pool that this is all.
    ring.Abandon();
    Sender(machinery_.pool()).End({});
  }
  end = Collector(machinery_.pool(), display).Collect(report);
  digest.Join();
  for (StreamReport &stream : report.streams)
    stream.crc = digest.Crc(stream.info.number);
  if (digest.failed())
    end.read_error = ENOMEM;
  return started;
}

}  // namespace kelstream
