// The consumer's side: receives the messages about a file and adds up what they
// tell.
#pragma once

#include <cstdint>
#include <string>

#include "messages.h"
#include "progress.h"
#include "report.h"

namespace kelstream {

class Collector {
 public:
  Collector(Exchange &exchange, ProgressBar &progress)
      : exchange_(exchange), progress_(progress) {}

  // Returns after the last message of the file.
  EndOfFile Collect(FileReport &report);

 private:
  void OnUnitBytes(const Message &message, StreamReport &stream);
  void OnRemark(const Message &message, FileReport &report);
  void AddUnit(const Unit &unit, StreamReport &stream);
  // Sound is counted in samples while the rate stays the same, to add exactly.
  void AddSound(const Unit &unit, StreamReport &stream);

  Exchange &exchange_;
  ProgressBar &progress_;
  uint64_t unit_bytes_ = 0;  // of the fragments received
  uint64_t samples_ = 0;
  uint32_t sample_rate_ = 0;
  double seconds_before_ = 0;  // at other rates
};

}  // namespace kelstream
