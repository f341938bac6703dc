// Texts that may hold anything, made fit for a terminal.

#include "text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace kelctl {

namespace {

// Characters, each counted as one column.
size_t Width(std::string_view text) {
  const auto begins = [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; };
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), begins));
}

bool IsControl(std::string_view character) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(character[i]); };
  if (character.size() == 1)
    return byte(0) < 0x20 || byte(0) == 0x7F;
  // U+0080 to U+009F: some terminals obey these, too.
  return character.size() == 2 && byte(0) == 0xC2 && byte(1) < 0xA0;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const size_t length = std::max<size_t>(Utf8Length(text), 1);
    const std::string_view character = text.substr(0, length);
    if (Utf8Length(text) != 0 && !IsControl(character)) {
      result += character;
    } else {
      for (const char byte : character)
        result += "\\x" + HexNumber(static_cast<uint8_t>(byte), 2);
    }
    text.remove_prefix(length);
  }
  return result;
}

std::string Count(uint64_t number, std::string_view noun) {
  std::string text = std::to_string(number) + " ";
  text += noun;
  return number == 1 ? text : text + "s";
}

std::string HexNumber(uint64_t number, int digits) {
  char text[24];
  std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(number));
  return text;
}

bool ParseNumber(std::string_view text, uint64_t *number) {
  int base = 10;
  if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
    text.remove_prefix(2);
    base = 16;
  }
  const char *const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, *number, base);
  return error == std::errc() && at == end;
}

Table::Table(const std::vector<std::string> &titles) {
  std::vector<std::string> row;
  for (const std::string &title : titles) {
    right_.push_back(title[0] == '>');
    row.push_back(title.substr(right_.back() ? 1 : 0));
  }
  rows_.push_back(std::move(row));
}

void Table::Add(const std::vector<std::string> &cells) {
  std::vector<std::string> row;
  row.reserve(cells.size());
  for (const std::string &cell : cells)
    row.push_back(Printable(cell));
  rows_.push_back(std::move(row));
}

std::string Table::Text() const {
  std::vector<size_t> widths(right_.size());
  for (const auto &row : rows_)
    for (size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], Width(row[i]));
  std::string text;
  for (const auto &row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string blanks(widths[i] - Width(row[i]), ' ');
      const bool last = i + 1 == row.size();
      if (right_[i])
        text += blanks + row[i];
      else
        text += last ? row[i] : row[i] + blanks;
      if (!last)
        text += "  ";
    }
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

}  // namespace kelctl
