// Standard output, kept clean for the report, and the messages on standard
// error.
#pragma once

#include <string_view>

namespace kelstream {

class Output {
 public:
  Output();
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  // Whether there is a standard output at all.
  bool ok() const { return ok_; }

  // From here on only Write reaches standard output; what the library prints
  // there by itself goes to standard error. False on failure.
  bool Reserve();

  // False when not all of it could be written.
  bool Write(std::string_view text);

 private:
  bool ok_;
  int reserved_ = -1;
};

// "kelstream: TEXT", each on a line of its own.
void Complain(std::string_view text);

}  // namespace kelstream
