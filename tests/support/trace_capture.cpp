#include "trace_capture.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include <mutex>

#include "kelcore_trace.h"

namespace {

std::mutex lines_mutex;
std::vector<std::string> raw_lines;

void Collect(const char *line) {
  std::lock_guard<std::mutex> guard(lines_mutex);
  raw_lines.emplace_back(line);
}

std::vector<std::string> TakeRaw() {
  std::lock_guard<std::mutex> guard(lines_mutex);
  return std::exchange(raw_lines, {});
}

// "00000012345 ERROR:[kelsema] kelcore_sema:12 (KEL_SemaGet) : text"
TraceLine Parse(const std::string &raw) {
  TraceLine line;
  size_t at = raw.find(' ') + 1;
  line.level = raw.substr(at, 5);
  size_t open = raw.find('[', at);
  size_t close = raw.find("] ", open);
  line.module = raw.substr(open + 1, close - open - 1);
  size_t colon = raw.find(':', close);
  line.file = raw.substr(close + 2, colon - close - 2);
  size_t func = raw.find(" (", colon) + 2;
  size_t end = raw.find(") : ", func);
  line.func = raw.substr(func, end - func);
  line.message = raw.substr(end + 4);
  return line;
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const TraceLine &line) {
  return out << line.level << ":[" << line.module << "] " << line.file << " (" << line.func
             << ") : " << testing::PrintToString(line.message);
}

TraceCapture::TraceCapture(const char *config) {
  TakeRaw();
  StdoutOf([&] { KEL_TraceSet(config); });
  KEL_TraceSetCB(Collect, 0);
}

TraceCapture::~TraceCapture() {
  KEL_TraceSetCB(nullptr, 1);
  StdoutOf([] { KEL_TraceSet(""); });
}

Lines TraceCapture::Take() {
  return Take("");
}

Lines TraceCapture::Take(const std::string &module) {
  Lines lines;
  for (const std::string &raw : TakeRaw()) {
    TraceLine line = Parse(raw);
    if (module.empty() || line.module == module)
      lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> TraceCapture::Messages(const std::string &module,
                                                const std::string &level) {
  std::vector<std::string> messages;
  for (const TraceLine &line : Take(module))
    if (level.empty() || line.level == level)
      messages.push_back(line.message);
  return messages;
}

std::vector<std::string> TraceCapture::Raw() {
  return TakeRaw();
}

std::string Format(const char *format, ...) {
  char text[4096];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

unsigned Low32(const void *pointer) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

unsigned Low32(unsigned long value) {
  return static_cast<unsigned>(value);
}

void BeginStdoutCapture() {
  testing::internal::CaptureStdout();
}

std::string EndStdoutCapture() {
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}
