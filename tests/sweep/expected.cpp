#include "expected.h"

#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "operations.h"

namespace {

using Sections = std::map<std::string, std::string>;

Sections &Loaded() {
  static Sections sections = [] {
    Sections read;
    std::string line, operation;
    for (std::ifstream file(EXPECTED_PATH); std::getline(file, line);)
      if (line.starts_with('['))
        operation = line.substr(1, line.size() - 2);
      else if (!operation.empty() && !line.empty())
        read[operation] += line + '\n';
    return read;
  }();
  return sections;
}

bool Exists(const std::string &operation) {
  return std::any_of(Operations().begin(), Operations().end(),
                     [&](const Operation &each) { return each.name == operation; });
}

std::vector<std::string> LinesOf(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

}  // namespace

bool Updating() {
  return getenv("KELCORE_SWEEP_UPDATE") != nullptr;
}

std::string Expected(const std::string &operation) {
  const auto found = Loaded().find(operation);
  return found != Loaded().end() ? found->second : "";
}

void Expect(const std::string &operation, const std::string &lines) {
  Loaded()[operation] = lines;
}

void WriteExpected() {
  std::ofstream file(EXPECTED_PATH);
  file << "# What every operation gives, undisturbed and with each call failing in turn.\n"
          "# Written by the sweep with KELCORE_SWEEP_UPDATE set; read each change.\n"
          "#\n"
          "# [operation]\n"
          "#   run: function=result errno ...\n"
          "#     module function: ERROR line\n"
          "#     left: what a function made and nobody released\n"
          "#     released without being there: what a function released a second time,\n"
          "#     or what was never made\n"
          "#   call ERROR (once and for good, or which of these) the how manieth: results\n"
          "#   that differ from the run's, and the lines that come in place of some of it\n";
  for (const auto &[operation, lines] : Loaded())
    if (Exists(operation))
      file << "\n[" << operation << "]\n" << lines;
}

std::string StaleOperation() {
  for (const auto &[operation, lines] : Loaded())
    if (!Exists(operation))
      return operation;
  return "";
}

std::string Difference(const std::string &expected, const std::string &seen, size_t most) {
  const std::vector<std::string> before = LinesOf(expected), after = LinesOf(seen);
  std::string difference;
  const auto add = [&](const std::vector<std::string> &lines,
                       const std::vector<std::string> &others, const char *sign) {
    std::map<std::string, int> counts;
    for (const std::string &line : others)
      ++counts[line];
    size_t told = 0;
    for (const std::string &line : lines)
      if (--counts[line] < 0 && told++ < most)
        difference += sign + line + '\n';
  };
  add(before, after, "- ");
  add(after, before, "+ ");
  return difference.empty() ? "the same lines in another order" : difference;
}
