// Reads a trace configuration the way the library does, and keeps what became
// of each part.

#include "trace_table.h"

#include <kelcore_trace.h>

#include <cerrno>
#include <cstdlib>

#include "text.h"

namespace kelctl {

namespace {

// The library's own limits; it tells of none of them when it applies them.
constexpr size_t kMaxEntries = 20;
constexpr size_t kMaxPair = 127;
constexpr size_t kLongestName = 29;
constexpr size_t kLongestLastName = 31;

std::vector<TraceSegment> Split(const std::string &text) {
  std::vector<TraceSegment> segments;
  for (size_t begin = 0;;) {
    const size_t comma = text.find(',', begin);
    segments.emplace_back().text = text.substr(begin, comma - begin);
    if (comma == std::string::npos)
      return segments;
    begin = comma + 1;
  }
}

bool IsBlank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

void ReadName(std::string name, bool last, TraceSegment *segment) {
  if (name.size() > (last ? kLongestLastName : kLongestName)) {
    name.resize(kLongestName);
    segment->notes.push_back("the name is cut to " + std::to_string(kLongestName) +
                             " characters, and no longer one matches");
  }
  if (name.empty())
    segment->notes.push_back("the name is empty");
  else if (IsBlank(name.front()) || IsBlank(name.back()))
    segment->notes.push_back("the blanks around the name belong to it");
  segment->module = std::move(name);
}

void ReadLevel(const std::string &text, TraceSegment *segment) {
  char *end = nullptr;
  errno = 0;
  const long number = std::strtol(text.c_str(), &end, 10);
  const bool fits = errno == 0 && number >= INT32_MIN && number <= INT32_MAX;
  const std::string digits = text.substr(0, static_cast<size_t>(end - text.c_str()));
  // Through 32 bits, as the table stores it.
  segment->level = static_cast<int32_t>(number);
  if (digits.empty())
    segment->notes.push_back("no number behind the ':', which counts as level 0");
  else if (!fits)
    segment->notes.push_back("level " + digits + " does not fit in 32 bits and becomes " +
                             std::to_string(segment->level));
  if (!digits.empty() && static_cast<size_t>(end - text.c_str()) < text.size())
    segment->notes.push_back("'" + std::string(end) + "' behind the number is not read");
  if (segment->level < 0) {
    segment->notes.push_back("level " + std::to_string(segment->level) +
                             " is below 0 and counts as 0");
    segment->level = 0;
  } else if (segment->level > KEL_LEVEL_TRACE) {
    segment->notes.push_back("level " + std::to_string(segment->level) +
                             " is above TRACE (4): lines of levels 5 to " +
                             std::to_string(segment->level) + " print, too, named TRACE");
  }
}

void ReadPair(bool last, TraceSegment *segment) {
  const std::string pair = segment->text.substr(0, kMaxPair);
  if (pair.size() < segment->text.size())
    segment->notes.push_back("only the first " + std::to_string(kMaxPair) +
                             " characters are read");
  const size_t colon = pair.find(':');
  if (colon == std::string::npos) {
    segment->fate = Fate::kSkipped;
    segment->notes.push_back(segment->text.empty() ? "it is empty" : "there is no ':' in it");
    return;
  }
  segment->fate = Fate::kEntry;
  ReadName(pair.substr(0, colon), last, segment);
  ReadLevel(pair.substr(colon + 1), segment);
}

// The first entry that matches decides.
void FindHidden(std::vector<TraceSegment> *segments) {
  for (size_t i = 0; i < segments->size(); ++i) {
    TraceSegment &segment = (*segments)[i];
    for (size_t j = 0; segment.decides() && j < i; ++j) {
      const TraceSegment &earlier = (*segments)[j];
      if (earlier.decides() && (earlier.matches_all() || earlier.module == segment.module))
        segment.hidden_by = j + 1;
    }
  }
}

}  // namespace

std::vector<TraceSegment> ReadTraceText(const std::string &text) {
  std::vector<TraceSegment> segments = Split(text);
  size_t used = 0;
  std::string end;  // why no more is read
  for (size_t i = 0; i < segments.size(); ++i) {
    TraceSegment &segment = segments[i];
    if (used == kMaxEntries && end.empty())
      end = "the table is full with " + std::to_string(kMaxEntries) + " entries";
    if (!end.empty()) {
      segment.notes.push_back(end);
      continue;
    }
    ReadPair(i + 1 == segments.size(), &segment);
    if (segment.fate != Fate::kEntry)
      continue;
    ++used;
    if (segment.matches_all() && segment.level != 0)
      end = "the '*' of segment " + std::to_string(i + 1) + " ends the reading";
  }
  FindHidden(&segments);
  return segments;
}

std::vector<std::string> AdmittedLevels(int32_t level) {
  const std::vector<std::string> names = {"ERROR", "INFO", "DEBUG", "TRACE"};
  const int32_t count = level < KEL_LEVEL_TRACE ? level : KEL_LEVEL_TRACE;
  return {names.begin(), names.begin() + (count > 0 ? count : 0)};
}

}  // namespace kelctl
