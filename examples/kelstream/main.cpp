// kelstream: inspects elementary streams and transport streams.

#include <kelcore_file.h>
#include <kelcore_smem.h>
#include <kelcore_system.h>
#include <kelcore_types.h>

#include <exception>
#include <string>
#include <vector>

#include "inspector.h"
#include "machinery.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "stop.h"
#include "trace.h"
#include "watcher.h"

namespace kelstream {
namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;

#define KELSTREAM_TEXT(number) KELSTREAM_TEXT_OF(number)
#define KELSTREAM_TEXT_OF(number) #number
constexpr const char kVersion[] =
    "kelstream " KELSTREAM_TEXT(KELCORE_VERSION_MAJOR) "." KELSTREAM_TEXT(
        KELCORE_VERSION_MINOR) "." KELSTREAM_TEXT(KELCORE_VERSION_PATCH) "\n";

int Print(Output &output, std::string_view text) {
  if (output.Write(text))
    return kSuccess;
  Complain("cannot write to standard output");
  return kFailure;
}

// False when the traces that were asked for cannot be had.
bool StartTracing(const Options &options) {
  if (!options.trace && !options.trace_to_file)
    return true;
  const char *const path = options.trace_to_file ? options.trace_file.c_str() : nullptr;
  KEL_TraceInit(path);
  if (options.trace)
    KEL_TraceSet(options.trace_text.c_str());
  constexpr int32_t kWritable = 2;
  KEL_FILE_ATTR attributes{};
  if (path == nullptr || (KEL_FileExist(path, kWritable) == 0 &&
                          KEL_GetFileAttr(path, &attributes) == 0 && attributes.is_dir == 0))
    return true;
  Complain("cannot write the trace file " + Printable(path));
  return false;
}

// A failure outweighs damage.
int Worse(int status, Outcome outcome) {
  if (status == kFailure || outcome == Outcome::kGood)
    return status;
  return static_cast<int>(outcome);
}

// Writes reports, and frames where they are wanted, as they come.
class Printer : public Inspector::FrameSink {
 public:
  Printer(const Options &options, Output &output)
      : options_(options), output_(output), frames_(options.json) {}

  void OnFrame(const FileReport &file, const FrameReport &frame) override {
    if (!options_.frames)
      return;
    text_ += frames_.Frame(file, frame);
    constexpr size_t kEnough = 65536;
    if (text_.size() >= kEnough)
      Flush();
  }
  void EndFile(FileReport &&report) {
    if (options_.frames)
      text_ += frames_.EndFile(report);
    if (!options_.frames || !options_.json)
      reports_.push_back(std::move(report));
    Flush();
  }
  // False when not all could be written.
  bool End() {
    if (options_.frames)
      text_ += frames_.End();
    if (!options_.json)
      text_ += FormatTable(reports_);
    else if (!options_.frames)
      text_ += FormatJson(reports_);
    Flush();
    return good_;
  }

 private:
  void Flush() {
    good_ = good_ && output_.Write(text_);
    text_.clear();
  }

  const Options &options_;
  Output &output_;
  FrameList frames_;
  std::vector<FileReport> reports_;
  std::string text_;
  bool good_ = true;
};

int Run(const Options &options, Output &output) {
  Machinery machinery;
  if (!machinery.ok()) {
    Complain("not enough memory");
    return kFailure;
  }
  Publisher publisher;
  if (options.publish) {
    CatchStops();
    const std::string problem = publisher.Open(options.publish_name);
    if (!problem.empty()) {
      Complain("cannot publish: " + problem);
      return kFailure;
    }
  }
  Printer printer(options, output);
  Inspector inspector(machinery, printer, publisher);
  int status = kSuccess;
  for (const std::string &file : options.files) {
    FileReport report;
    status = Worse(status, inspector.Inspect(file, report));
    if (StopRequested())
      Stop(publisher);
    if (report.container != Container::kUnknown)
      printer.EndFile(std::move(report));
  }
  if (printer.End())
    return status;
  Complain("cannot write to standard output");
  return kFailure;
}

int Main(const std::vector<std::string> &arguments) {
  Output output;
  Options options;
  const std::string problem = ParseOptions(arguments, options);
  if (!problem.empty()) {
    Complain(Printable(problem));
    Complain("try 'kelstream --help'");
    return kFailure;
  }
  // The library's own prints must not get into the document.
  const bool reserve = options.json || options.publish || options.watch;
  if (!output.ok() || (reserve && !output.Reserve())) {
    Complain("no standard output");
    return kFailure;
  }
  if (options.help)
    return Print(output, kHelp);
  if (options.version)
    return Print(output, kVersion);
  KEL_SystemInit(nullptr);
  KEL_SMalloc_Init();
  int status = kFailure;
  if (StartTracing(options))
    status = options.watch ? (Watch(options.watch_name, output) ? kSuccess : kFailure)
                           : Run(options, output);
  KEL_SMalloc_Deinit();
  if (options.trace || options.trace_to_file)
    KEL_TraceDeinit();
  KEL_SystemUnInit(nullptr);
  return status;
}

}  // namespace
}  // namespace kelstream

int main(int argc, char **argv) {
  try {
    return kelstream::Main({argv + 1, argv + argc});
  } catch (const std::exception &error) {
    kelstream::Complain(error.what());
    return kelstream::kFailure;
  }
}
