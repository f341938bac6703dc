// The command line behind the command's name.

#include "options.h"

#include "report.h"
#include "text.h"

namespace kelctl {

Options::Options(const std::vector<std::string> &arguments, const OptionNames &known) {
  bool only_operands = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string &argument = arguments[i];
    if (only_operands || argument.size() < 2 || argument[0] != '-') {
      operands_.push_back(argument);
      continue;
    }
    if (argument == "--") {
      only_operands = true;
      continue;
    }
    const size_t equals = argument.find('=');
    const bool with_value = equals != std::string::npos;
    const std::string dashed = argument.substr(0, equals);
    const std::string name = dashed.substr(0, 2) == "--" ? dashed.substr(2) : "";
    if (known.flags.count(name) != 0) {
      if (with_value)
        throw UsageError("option " + dashed + " takes no value");
      given_[name];
    } else if (known.values.count(name) != 0) {
      if (!with_value && i + 1 == arguments.size())
        throw UsageError("option " + dashed + " needs a value");
      given_[name] = with_value ? argument.substr(equals + 1) : arguments[++i];
    } else {
      throw UsageError("unknown option " + argument);
    }
  }
}

std::string Options::Value(const std::string &name, const std::string &otherwise) const {
  const auto found = given_.find(name);
  return found != given_.end() ? found->second : otherwise;
}

uint64_t Options::Number(const std::string &name, uint64_t otherwise) const {
  const auto found = given_.find(name);
  if (found == given_.end())
    return otherwise;
  uint64_t number = 0;
  if (!ParseNumber(found->second, &number))
    throw UsageError("option --" + name + " needs a number, not '" + found->second + "'");
  return number;
}

}  // namespace kelctl
