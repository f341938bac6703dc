// Collects what the library traces while it lives.
//
//     TraceCapture trace;                    // "*:4", callback only
//     KEL_MutexDestroy(...);
//     EXPECT_EQ(trace.Take(), (Lines{{"ERROR", "kelsema", "kelcore_sema", "KEL_SemaGet",
//                                     "sem_trywait err=11\n"}}));
#pragma once

#include <ostream>
#include <string>
#include <vector>

struct TraceLine {
  std::string level;    // "ERROR", "INFO ", "DEBUG" or "TRACE"
  std::string module;   // "kelqueue"
  std::string file;     // "kelcore_queue"
  std::string func;     // "KEL_QueuePush"
  std::string message;  // with its line end
  bool operator==(const TraceLine &) const = default;
};
std::ostream &operator<<(std::ostream &out, const TraceLine &line);
using Lines = std::vector<TraceLine>;

class TraceCapture {
 public:
  // `config` is handed to KEL_TraceSet; what that prints is swallowed.
  explicit TraceCapture(const char *config = "*:4");
  ~TraceCapture();
  TraceCapture(const TraceCapture &) = delete;
  TraceCapture &operator=(const TraceCapture &) = delete;

  // The lines since the last Take(), of every module, or of one.
  Lines Take();
  Lines Take(const std::string &module);
  // The messages alone, of `module` (every one when empty) and `level` (any
  // when empty), since the last Take.
  std::vector<std::string> Messages(const std::string &module = "",
                                    const std::string &level = "");
  // The whole lines as the callback got them.
  std::vector<std::string> Raw();
};

// printf into a string: for messages that hold addresses, with Low32 below.
std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));
// What %x and %d show of a pointer.
unsigned Low32(const void *pointer);
unsigned Low32(unsigned long value);

// Runs `action` and returns what it wrote to standard output.
template <typename F>
std::string StdoutOf(F &&action);

void BeginStdoutCapture();
std::string EndStdoutCapture();

template <typename F>
std::string StdoutOf(F &&action) {
  BeginStdoutCapture();
  action();
  return EndStdoutCapture();
}
