// A thread of the pipeline.
#pragma once

#include <kelcore_thread.h>

#include "signals.h"

namespace kelstream {

// Runs `Run()` of the object that it belongs to. Joined when it is destroyed.
template <typename Owner>
class Worker {
 public:
  Worker() = default;
  ~Worker() { Join(); }
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  // False when there is no thread to be had.
  bool Start(const char *name, Owner &owner) {
    const SignalsBlocked blocked;
    const auto entry = [](void *argument) -> void * {
      static_cast<Owner *>(argument)->Run();
      return nullptr;
    };
    thread_ = KEL_ThreadCreate(name, 0, 0, entry, &owner);
    return thread_ != nullptr;
  }
  void Join() {
    if (thread_ != nullptr)
      KEL_ThreadDelete(thread_, nullptr);
    thread_ = nullptr;
  }

 private:
  KEL_THREAD *thread_ = nullptr;
};

}  // namespace kelstream
