// A strict reader of JSON.

#include "json_reader.h"

#include <cstdlib>

#include "text.h"

namespace kelctl_test {

namespace {

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  JsonValue Document() {
    JsonValue value = Value();
    Expect('\n');
    if (!text_.empty())
      Fail("something behind the document");
    return value;
  }

 private:
  [[noreturn]] void Fail(const std::string &what) {
    throw std::runtime_error("no JSON: " + what + " before '" +
                             std::string(text_.substr(0, 20)) + "'");
  }
  char Peek() {
    if (text_.empty())
      Fail("it ends");
    return text_.front();
  }
  char Next() {
    const char character = Peek();
    text_.remove_prefix(1);
    return character;
  }
  void Expect(char character) {
    if (Next() != character)
      Fail(std::string("no ") + character);
  }
  bool Take(std::string_view word) {
    if (text_.substr(0, word.size()) != word)
      return false;
    text_.remove_prefix(word.size());
    return true;
  }

  JsonValue Value() {
    JsonValue value;
    if (Peek() == '{')
      return Object();
    if (Peek() == '[')
      return Array();
    if (Peek() == '"') {
      value.kind = JsonValue::kText;
      value.text = Text();
    } else if (Peek() == 't' || Peek() == 'f') {
      value.kind = JsonValue::kBool;
      value.truth = Take("true");
      if (!value.truth && !Take("false"))
        Fail("no word");
    } else if (!Take("null")) {
      value.kind = JsonValue::kNumber;
      value.number = Number();
    }
    return value;
  }

  // Whole ones only: kelctl writes no others.
  double Number() {
    std::string digits(Take("-") ? "-" : "");
    const size_t first = digits.size();
    while (!text_.empty() && Peek() >= '0' && Peek() <= '9')
      digits += Next();
    if (digits.size() == first || (digits[first] == '0' && digits.size() > first + 1))
      Fail("no number");
    return std::strtod(digits.c_str(), nullptr);
  }

  std::string Text() {
    std::string result;
    Expect('"');
    while (Peek() != '"') {
      const auto byte = static_cast<unsigned char>(Peek());
      const size_t length = kelctl::Utf8Length(text_);
      if (byte < 0x20 || length == 0)
        Fail("a raw control character or no UTF-8");
      if (byte == '\\') {
        result += Escaped();
        continue;
      }
      result += text_.substr(0, length);
      text_.remove_prefix(length);
    }
    Next();
    return result;
  }

  std::string Escaped() {
    if (Take("\\\""))
      return "\"";
    if (Take("\\\\"))
      return "\\";
    if (Take("\\n"))
      return "\n";
    if (Take("\\r"))
      return "\r";
    if (Take("\\t"))
      return "\t";
    if (Take("\\ufffd"))
      return "\xEF\xBF\xBD";
    if (!Take("\\u00"))
      Fail("no escape");
    const std::string digits = {Next(), Next()};
    return {static_cast<char>(std::strtol(digits.c_str(), nullptr, 16))};
  }

  JsonValue Array() {
    JsonValue value;
    value.kind = JsonValue::kArray;
    Expect('[');
    if (Take("]"))
      return value;
    do
      value.items.push_back(Value());
    while (Take(","));
    Expect(']');
    return value;
  }

  JsonValue Object() {
    JsonValue value;
    value.kind = JsonValue::kObject;
    Expect('{');
    if (Take("}"))
      return value;
    do {
      const std::string name = Text();
      Expect(':');
      if (!value.members.emplace(name, Value()).second)
        Fail("a second " + name);
    } while (Take(","));
    Expect('}');
    return value;
  }

  std::string_view text_;
};

}  // namespace

JsonValue ReadJson(std::string_view text) {
  return Reader(text).Document();
}

}  // namespace kelctl_test
