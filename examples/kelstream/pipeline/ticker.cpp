// Says ten times a second that it is time to show how far things are.

#include "ticker.h"

#include "trace.h"

namespace kelstream {

namespace {

constexpr uint64_t kPeriodUs = 100000;

}  // namespace

Ticker::Ticker(bool wanted) {
  if (!wanted)
    return;
  timer_.reset(KEL_TimerCreate(kPeriodUs, &Ticker::OnTimer, this));
  // Without it nothing is shown on the way; the result is the same.
  if (timer_ == nullptr || KEL_TimerStart(timer_.get(), 0, 1, nullptr, nullptr) != 0)
    KELSTREAM_TRACE(KEL_LEVEL_ERROR, "no timer for the progress display\n");
}

}  // namespace kelstream
