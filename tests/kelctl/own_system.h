// A system of its own for a child process: no queues, semaphores or segments
// but those that it makes.
#pragma once

#include <string>

namespace kelctl_test {

enum class Queues { kMounted, kHidden };

// Called in the child; `directory` is an empty one to mount at. False when this
// machine does not let us. What is made here ends with the child.
bool EnterOwnSystem(Queues queues, const std::string &directory);

}  // namespace kelctl_test
