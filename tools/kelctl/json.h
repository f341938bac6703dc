// A JSON document, written from front to back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kelctl {

// Quoted and escaped. What is no UTF-8 becomes U+FFFD: a document must stay
// readable whatever a name holds.
std::string JsonString(std::string_view text);

class Json {
 public:
  Json &Object() { return Open('{'); }
  Json &EndObject() { return Close('}'); }
  Json &Array() { return Open('['); }
  Json &EndArray() { return Close(']'); }
  Json &Key(std::string_view name);
  Json &Text(std::string_view value) { return Plain(JsonString(value)); }
  Json &Number(int64_t value) { return Plain(std::to_string(value)); }
  Json &Number(uint64_t value) { return Plain(std::to_string(value)); }
  Json &Bool(bool value) { return Plain(value ? "true" : "false"); }
  Json &Null() { return Plain("null"); }

  // What has been written since the last call.
  std::string Take();

 private:
  Json &Open(char bracket);
  Json &Close(char bracket);
  Json &Plain(std::string_view value);
  void Separate();

  std::string text_;
  bool first_ = true;  // in its array or object, or behind its key
};

}  // namespace kelctl
