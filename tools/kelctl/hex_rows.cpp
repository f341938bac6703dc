// Bytes, sixteen to a row, as digits and as characters.

#include "hex_rows.h"

namespace kelctl {

namespace {

// Not HexNumber: files are large.
void AppendByte(std::string &text, char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  text += kDigits[static_cast<uint8_t>(byte) >> 4];
  text += kDigits[static_cast<uint8_t>(byte) & 15];
}

// Eight digits, or more when the offset has more.
void AppendOffset(std::string &text, uint64_t offset) {
  for (int shift = offset >> 32 != 0 ? 56 : 24; shift >= 0; shift -= 8)
    AppendByte(text, static_cast<char>(offset >> shift & 0xFF));
}

// ASCII only, whatever the locale: columns must line up.
std::string Characters(std::string_view row) {
  std::string text(row);
  for (char &character : text)
    if (character < ' ' || character > '~')
      character = '.';
  return text;
}

}  // namespace

std::string HexRows(std::string_view data, uint64_t offset) {
  std::string text;
  for (size_t at = 0; at < data.size(); at += kRowBytes) {
    const std::string_view row = data.substr(at, kRowBytes);
    AppendOffset(text, offset + at);
    text += ' ';
    for (size_t i = 0; i < kRowBytes; ++i) {
      text += i == kRowBytes / 2 ? "  " : " ";
      if (i < row.size())
        AppendByte(text, row[i]);
      else
        text += "  ";
    }
    text += "  |" + Characters(row) + "|\n";
  }
  return text;
}

void AddHexRows(Json &json, std::string_view data, uint64_t offset) {
  for (size_t at = 0; at < data.size(); at += kRowBytes) {
    const std::string_view row = data.substr(at, kRowBytes);
    std::string digits;
    for (const char byte : row)
      AppendByte(digits, byte);
    json.Object().Key("offset").Number(offset + at);
    json.Key("hex").Text(digits).Key("ascii").Text(Characters(row)).EndObject();
  }
}

}  // namespace kelctl
