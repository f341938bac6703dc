// Inspects one file.

#include "inspector.h"

#include <kelcore_file.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "collector.h"
#include "output.h"
#include "progress.h"
#include "reader.h"

namespace kelstream {

namespace {

struct CloseFile {
  void operator()(FILE *file) const { KEL_FileClose(file); }
};

std::string ErrorText(int error) {
  return std::strerror(error);  // NOLINT(concurrency-mt-unsafe): the main thread's alone
}

void PrintRemarks(const std::string &name, const FileReport &report) {
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
    return "not a stream that kelstream knows (H.264 byte stream, AAC in ADTS)";
  return {};
}

}  // namespace

Outcome Inspector::Inspect(const std::string &file, FileReport &report) {
  report.file = file;
  const std::string name = Printable(file);
  const auto fail = [&](const std::string &text) {
    Complain(name + ": " + text);
    return Outcome::kFailed;
  };
  const std::string path = file == "-" ? "/dev/stdin" : file;
  KEL_FILE_ATTR attributes{};
  KEL_GetFileAttr(path.c_str(), &attributes);
  const std::unique_ptr<FILE, CloseFile> stream(KEL_FileOpen(path.c_str(), KEL_FILE_MODE_READ));
  if (stream == nullptr)
    return fail(ErrorText(errno));

  EndOfFile end;
  {
    Reader reader(exchange_, stream.get());
    ProgressBar progress(attributes.size);
    if (!reader.Start())
      return fail("no thread to read it with");
    end = Collector(exchange_, progress).Collect(report);
  }
  PrintRemarks(name, report);
  const std::string failure = Failure(end);
  if (!failure.empty())
    return fail(failure);
  return report.damaged ? Outcome::kDamaged : Outcome::kGood;
}

}  // namespace kelstream
