// What goes to standard output and standard error, and how commands fail.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace kelctl {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;

// Ends the command with kFailure.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Ends the command with kUsage.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws Failure when standard output does not take it.
void Print(std::string_view text);

// Everything printed has arrived; throws Failure when not.
void FinishPrinting();

// "kelctl: TEXT" on a line of standard error, made printable.
void Complain(std::string_view text);

// The text of an error number.
std::string ErrorText(int error);

}  // namespace kelctl
