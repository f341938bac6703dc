// Reads a trace configuration the way the library does, and keeps what became
// of each part.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelctl {

enum class Fate {
  kEntry,    // in the table
  kSkipped,  // holds no pair
  kUnread,   // behind the end of the reading
};

struct TraceSegment {
  std::string text;
  Fate fate = Fate::kUnread;
  std::string module;  // as the table keeps it
  int32_t level = 0;   // as the table keeps it
  // The number of the segment that decides in this one's place; 0 when this
  // one can decide.
  size_t hidden_by = 0;
  std::vector<std::string> notes;

  bool decides() const { return fate == Fate::kEntry && hidden_by == 0; }
  bool matches_all() const { return module == "*"; }
};

std::vector<TraceSegment> ReadTraceText(const std::string &text);

// The levels that a table's level admits, by name.
std::vector<std::string> AdmittedLevels(int32_t level);

}  // namespace kelctl
