// An open file, closed with its scope.
#pragma once

#include <unistd.h>

namespace kelctl {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0)
      close(number_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  int number() const { return number_; }
  bool ok() const { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace kelctl
