// Files to read, standard input under the name of "-".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "descriptor.h"

namespace kelctl {

class Input {
 public:
  // Throws Failure, as the other calls do.
  explicit Input(const std::string &name);

  // Fills the buffer; less than `size` bytes come at the end only.
  size_t Read(char *buffer, size_t size);
  // Moves on by this many bytes, also where nothing but reading does.
  void Skip(uint64_t count);

 private:
  [[noreturn]] void Fail() const;

  std::string name_;
  Descriptor own_;
  int descriptor_;
};

}  // namespace kelctl
