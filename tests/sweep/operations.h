// One short life of everything that the library makes.
#pragma once

#include <string>
#include <vector>

#include "faults.h"

// The first `times` of these calls fail.
struct Given {
  std::string call;
  int error;
  int times = faults::kForever;
};

struct Operation {
  std::string name;
  // Makes, uses and releases, by CALL; with whatever failed it goes on as a
  // program would.
  void (*run)();
  // What fails here in any case, and what is swept is the rest.
  std::vector<Given> given = {};
  // Calls that must not fail here, as nobody would wake up any more.
  std::vector<std::string> spared = {};
};

// By name.
const std::vector<Operation> &Operations();

// Each module's.
std::vector<Operation> SynchronisationOperations();
std::vector<Operation> ContainerOperations();
std::vector<Operation> MemoryOperations();
std::vector<Operation> ProcessOperations();
std::vector<Operation> FileOperations();
