#include "operations.h"

#include <algorithm>

const std::vector<Operation> &Operations() {
  static const std::vector<Operation> operations = [] {
    std::vector<Operation> all;
    for (auto *of_module : {SynchronisationOperations, ContainerOperations, MemoryOperations,
                            ProcessOperations, FileOperations})
      for (Operation &operation : of_module())
        all.push_back(std::move(operation));
    std::sort(all.begin(), all.end(),
              [](const Operation &a, const Operation &b) { return a.name < b.name; });
    return all;
  }();
  return operations;
}
