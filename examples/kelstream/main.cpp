// kelstream: inspects elementary streams.

#include <kelcore_file.h>
#include <kelcore_system.h>
#include <kelcore_types.h>

#include <exception>
#include <string>
#include <vector>

#include "inspector.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "trace.h"

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

int Run(const Options &options, Output &output) {
  Exchange exchange;
  if (!exchange.ok()) {
    Complain("not enough memory");
    return kFailure;
  }
  Inspector inspector(exchange);
  std::vector<FileReport> reports;
  int status = kSuccess;
  for (const std::string &file : options.files) {
    FileReport report;
    status = Worse(status, inspector.Inspect(file, report));
    if (!report.streams.empty())
      reports.push_back(std::move(report));
  }
  const std::string text = options.json ? FormatJson(reports) : FormatTable(reports);
  return Print(output, text) == kFailure ? kFailure : status;
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
  if (!output.ok() || (options.json && !output.Reserve())) {
    Complain("no standard output");
    return kFailure;
  }
  if (options.help)
    return Print(output, kHelp);
  if (options.version)
    return Print(output, kVersion);
  KEL_SystemInit(nullptr);
  const int status = StartTracing(options) ? Run(options, output) : kFailure;
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
