// Inspects one file: opens it, lets the reader and the collector work, and says
// what was wrong with it.
#pragma once

#include <string>

#include "messages.h"
#include "report.h"

namespace kelstream {

enum class Outcome : int {
  kGood = 0,
  kFailed = 1,   // nothing, or not all, could be read
  kDamaged = 2,  // all was read, and something is wrong with it
};

class Inspector {
 public:
  explicit Inspector(Exchange &exchange) : exchange_(exchange) {}

  // Complaints go to standard error. The report has streams unless the file
  // could not be read at all.
  Outcome Inspect(const std::string &file, FileReport &report);

 private:
  Exchange &exchange_;
};

}  // namespace kelstream
