// A strict reader of JSON: what kelctl prints must please any other one.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelctl_test {

struct JsonValue {
  enum Kind { kNull, kBool, kNumber, kText, kArray, kObject };
  Kind kind = kNull;
  bool truth = false;
  double number = 0;
  std::string text;
  std::vector<JsonValue> items;
  std::map<std::string, JsonValue> members;

  bool null() const { return kind == kNull; }
  size_t size() const { return items.size(); }
  // Throw when there is none.
  const JsonValue &operator[](const std::string &name) const { return members.at(name); }
  const JsonValue &operator[](size_t index) const { return items.at(index); }
};

// Throws std::runtime_error for what is not one document and a line end.
JsonValue ReadJson(std::string_view text);

}  // namespace kelctl_test
