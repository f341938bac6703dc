// The command line behind the command's name.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kelctl {

// Which options a command knows, without their "--".
struct OptionNames {
  std::set<std::string> flags;
  std::set<std::string> values;
};

class Options {
 public:
  // Throws UsageError. Options and operands mix; "--" ends the options.
  Options(const std::vector<std::string> &arguments, const OptionNames &known);

  bool Has(const std::string &name) const { return given_.count(name) != 0; }
  std::string Value(const std::string &name, const std::string &otherwise) const;
  // As Value; throws UsageError for what is no number.
  uint64_t Number(const std::string &name, uint64_t otherwise) const;
  const std::vector<std::string> &operands() const { return operands_; }

 private:
  std::map<std::string, std::string> given_;
  std::vector<std::string> operands_;
};

}  // namespace kelctl
