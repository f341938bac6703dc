// Shows what another kelstream publishes.
#pragma once

#include <string>

#include "output.h"

namespace kelstream {

// Returns when the publisher has ended: true when it finished its work. False,
// after a complaint, when nothing is published under this name or the publisher
// was killed.
bool Watch(const std::string &name, Output &output);

}  // namespace kelstream
