// Clean-up and tracing must not disturb the errno that a failing call left.
#pragma once

#include <errno.h>

namespace kel {

class ErrnoGuard {
 public:
  ErrnoGuard() : saved_(errno) {}
  ~ErrnoGuard() { errno = saved_; }
  ErrnoGuard(const ErrnoGuard &) = delete;
  ErrnoGuard &operator=(const ErrnoGuard &) = delete;
  int saved() const { return saved_; }

 private:
  int saved_;
};

}  // namespace kel
