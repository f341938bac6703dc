// Whether a process is still there.

#include "process.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace kelstream {

namespace {

// 0 when there is no such process, or it has ended and only waits for its
// parent to notice.
uint64_t StartOf(int64_t number) {
  std::ifstream file("/proc/" + std::to_string(number) + "/stat");
  std::string text;
  std::getline(file, text, '\0');
  // The second field is the program's name in parentheses, whatever it holds.
  const size_t name_end = text.rfind(')');
  if (name_end == std::string::npos)
    return 0;
  std::istringstream fields(text.substr(name_end + 1));
  std::string state, field;
  fields >> state;
  constexpr int kState = 3, kStart = 22;
  for (int i = kState; i < kStart; ++i)
    fields >> field;
  if (!fields || state == "Z" || state == "X")
    return 0;
  return std::strtoull(field.c_str(), nullptr, 10);
}

}  // namespace

ProcessId ThisProcess() {
  const int64_t number = getpid();
  return {number, StartOf(number)};
}

bool IsAlive(const ProcessId &process) {
  return process.number > 0 && process.start != 0 && StartOf(process.number) == process.start;
}

}  // namespace kelstream
