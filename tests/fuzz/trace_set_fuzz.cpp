// The text that configures tracing: what is printed about it, and whose lines
// pass afterwards, against a second reading of the same text.

#include <kelcore_trace.h>

#include <algorithm>

#include "fuzz.h"

namespace {

constexpr size_t kMostEntries = 20;
constexpr size_t kMostPair = 127;
constexpr size_t kMostName = 29;
constexpr size_t kMostLastName = 31;

std::string printed;  // on standard output
std::string line;     // the last one traced
int32_t bare_level = 0;

ssize_t Keep(void *, const char *text, size_t size) {
  printed.append(text, size);
  return static_cast<ssize_t>(size);
}

std::string Printed() {
  fflush(stdout);
  return std::exchange(printed, {});
}

struct Entry {
  std::string name;
  int32_t level;
};

struct Table {
  std::vector<Entry> entries;
  std::string told;

  bool Admits(const std::string &module, int32_t level) const {
    for (const Entry &entry : entries)
      if (entry.name == module || entry.name == "*")
        return level <= entry.level;
    return false;
  }
};

// False when nothing behind the pair is read any more.
bool ReadPair(std::string pair, bool last, Table &table) {
  pair.resize(std::min(pair.size(), kMostPair));
  const size_t colon = pair.find(':');
  if (colon == std::string::npos)
    return true;
  std::string name = pair.substr(0, colon);
  if (name.size() > (last ? kMostLastName : kMostName))
    name.resize(kMostName);
  // Numbers too large keep their low bits.
  const auto level = static_cast<int32_t>(strtol(pair.c_str() + colon + 1, nullptr, 10));
  table.told += "Module:" + name + " Level:" + std::to_string(level) + "\n";
  table.entries.push_back({name, std::max(level, 0)});
  if (level > 0 && name == "*") {
    bare_level = level;
    return false;
  }
  return table.entries.size() < kMostEntries;
}

Table Read(const std::string &text) {
  Table table;
  for (size_t at = 0;;) {
    const size_t comma = text.find(',', at);
    const bool last = comma == std::string::npos;
    if (!ReadPair(text.substr(at, last ? comma : comma - at), last, table) || last)
      return table;
    at = comma + 1;
  }
}

void CheckTold(const std::string &text, const Table &table) {
  std::string told = Printed();
  told.erase(0, told.find(' '));  // the time
  FUZZ_EQUAL(told, " kelcore_trace:211 (KEL_TraceSet) : " + text + "\n" + table.told);
}

void CheckModule(const Table &table, const std::string &module) {
  static constexpr const char *kNames[] = {"NONE ", "ERROR", "INFO ",
                                           "DEBUG", "TRACE", "TRACE"};
  for (int32_t level = -1; level <= 5; ++level) {
    line.clear();
    KEL_Trace(module.c_str(), level, "file.c", 7, "func", "said %d\n", level);
    if (level <= 0 || !table.Admits(module, level)) {
      FUZZ_EQUAL(line, "");
      continue;
    }
    line.erase(0, line.find(' '));
    FUZZ_EQUAL(line, std::string(" ") + kNames[level] + ":[" + module +
                         "] file.c:7 (func) : said " + std::to_string(level) + "\n");
  }
}

void CheckBare() {
  KEL_Traces("%s", "bare");
  FUZZ_EQUAL(Printed(), bare_level > 0 ? "bare" : "");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  cookie_io_functions_t functions = {};
  functions.write = Keep;
  stdout = fopencookie(nullptr, "w", functions);
  KEL_TraceSetCB([](const char *text) { line = text; }, 0);
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(std::string(reinterpret_cast<const char *>(data), size).c_str());
  const fuzz::ExactText exact(text);
  KEL_TraceSet(exact);
  const Table table = Read(text);
  CheckTold(text, table);
  for (const Entry &entry : table.entries)
    CheckModule(table, entry.name);
  CheckModule(table, "kelqueue");
  CheckModule(table, text.substr(0, 40));
  CheckBare();
  return 0;
}
