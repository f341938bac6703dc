// A JSON document, written from front to back.

#include "json.h"

#include <utility>

#include "text.h"

namespace kelctl {

namespace {

std::string Escape(char character) {
  switch (character) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return "\\u" + HexNumber(static_cast<uint8_t>(character), 4);
  }
}

bool NeedsEscape(char character) {
  const auto byte = static_cast<uint8_t>(character);
  return byte < 0x20 || byte == 0x7F || character == '"' || character == '\\';
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const size_t length = Utf8Length(text);
    if (length == 0)
      result += "\\ufffd";
    else if (NeedsEscape(text.front()))
      result += Escape(text.front());
    else
      result += text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result + "\"";
}

Json &Json::Key(std::string_view name) {
  Separate();
  text_ += JsonString(name) + ":";
  first_ = true;
  return *this;
}

std::string Json::Take() {
  return std::exchange(text_, {});
}

Json &Json::Open(char bracket) {
  Separate();
  text_ += bracket;
  first_ = true;
  return *this;
}

Json &Json::Close(char bracket) {
  text_ += bracket;
  first_ = false;
  return *this;
}

Json &Json::Plain(std::string_view value) {
  Separate();
  text_ += value;
  return *this;
}

void Json::Separate() {
  if (!first_)
    text_ += ',';
  first_ = false;
}

}  // namespace kelctl
