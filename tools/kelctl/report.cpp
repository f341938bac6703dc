// What goes to standard output and standard error, and how commands fail.

#include "report.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "text.h"

namespace kelctl {

namespace {

[[noreturn]] void FailToPrint() {
  throw Failure("cannot write to standard output: " + ErrorText(errno));
}

}  // namespace

void Print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
    FailToPrint();
}

void FinishPrinting() {
  if (std::fflush(stdout) != 0)
    FailToPrint();
}

void Complain(std::string_view text) {
  const std::string line = "kelctl: " + Printable(text) + "\n";
  std::fflush(stdout);
  std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string ErrorText(int error) {
  return std::generic_category().message(error);
}

}  // namespace kelctl
