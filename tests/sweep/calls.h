// The calls of the C library and the system that the library makes and that can
// fail, each with the errors that matter.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct FailingCall {
  std::string name;
  bool allocates;
  std::vector<int> errors;
  // The calls after the first `skip` fail with `error`, `times` times.
  std::function<void(int error, int skip, int times)> fail;
};

const std::vector<FailingCall> &FailingCalls();
