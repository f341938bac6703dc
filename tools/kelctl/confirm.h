// The question before something is taken away.
#pragma once

#include <string>

namespace kelctl {

// Asks on the terminal; true for "y" and "yes", and at once with `yes`. Throws
// Failure when there is no terminal to ask on: a script must say --yes.
bool Confirm(const std::string &question, bool yes);

}  // namespace kelctl
