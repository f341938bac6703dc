// One short life of everything that the library makes.
#pragma once

#include <string>
#include <vector>

struct Operation {
  std::string name;
  // Makes, uses and releases. True when all went well; what went wrong leaves
  // nothing behind but what `keeps` names.
  bool (*run)();
  // A failing allocation is told by the result alone.
  bool silent = false;
  // Functions whose allocations stay on purpose when something fails.
  std::vector<std::string> keeps = {};
  // Calls that must not fail here, as nobody would wake up any more.
  std::vector<std::string> spared = {};
};

const std::vector<Operation> &Operations();
// Removes what a failed operation may have left in the system.
void RemoveLeftovers();
