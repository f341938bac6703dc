// One short life of everything that the library makes.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct Operation {
  std::string name;
  // Makes, uses and releases, by CALL; with whatever failed it goes on as a
  // program would.
  void (*run)();
  // Calls that always fail here, with these errors, and what is swept is the rest.
  std::vector<std::pair<std::string, int>> given = {};
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
