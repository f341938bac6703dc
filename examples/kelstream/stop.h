// Being told to stop, by a key or by another process, while something is
// published: nothing of it is to stay in the system.
#pragma once

#include "publisher.h"

namespace kelstream {

// From here on the signals that end a program are kept until somebody asks.
void CatchStops();
bool StopRequested();
// Takes back what is published, and ends the program as the signal would have.
[[noreturn]] void Stop(Publisher &publisher);

}  // namespace kelstream
