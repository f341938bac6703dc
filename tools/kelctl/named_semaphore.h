// POSIX named semaphores.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "access.h"

namespace kelctl {

struct Semaphore {
  std::string name;
  std::string problem;  // why its value cannot be read
  int value = 0;
  Access access;
};

// Sorted. Throws Failure when their directory cannot be read.
std::vector<std::string> ListSemaphores();

// None when there is no semaphore of that name.
std::optional<Semaphore> FindSemaphore(const std::string &name);

// Throws Failure.
void RemoveSemaphore(const std::string &name);

}  // namespace kelctl
