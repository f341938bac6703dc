// Texts that may hold anything, made fit for a terminal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "utf8.h"

namespace kelctl {

using shared::Utf8Length;

// Control characters and stray bytes become \xNN: names from the system must
// not steer the terminal.
std::string Printable(std::string_view text);

// "1 message", "2 messages".
std::string Count(uint64_t number, std::string_view noun);

std::string HexNumber(uint64_t number, int digits);

// Decimal, or hexadecimal behind "0x"; false for anything else, signs included.
bool ParseNumber(std::string_view text, uint64_t *number);

// Lines up what its rows hold; cells are made printable.
class Table {
 public:
  // A title that begins with '>' stands over numbers, which end where it ends.
  explicit Table(const std::vector<std::string> &titles);
  void Add(const std::vector<std::string> &cells);
  std::string Text() const;

 private:
  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace kelctl
