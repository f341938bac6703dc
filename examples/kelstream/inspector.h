// Inspects one file after the other, and tells on standard error what was wrong
// with it.
#pragma once

#include <cstdio>
#include <string>

#include "collector.h"
#include "machinery.h"
#include "publisher.h"
#include "report.h"

namespace kelstream {

enum class Outcome : int {
  kGood = 0,
  kFailed = 1,   // nothing, or not all, could be read
  kDamaged = 2,  // all was read, and something is wrong with it
};

class Inspector {
 public:
  // Frames go to `frames` as they are found.
  class FrameSink {
   public:
    virtual ~FrameSink() = default;
    virtual void OnFrame(const FileReport &file, const FrameReport &frame) = 0;
  };

  Inspector(Machinery &machinery, FrameSink &frames, Publisher &publisher)
      : machinery_(machinery), frames_(frames), publisher_(publisher) {}

  // Complaints go to standard error. The report has a container unless the file
  // could not be read at all.
  Outcome Inspect(const std::string &file, FileReport &report);

 private:
  Outcome InspectOpen(FILE *file, uint64_t size, FileReport &report);
  // False when there are no threads to be had.
  bool Collect(FILE *file, uint64_t size, FileReport &report, EndOfFile &end);

  Machinery &machinery_;
  FrameSink &frames_;
  Publisher &publisher_;
};

}  // namespace kelstream
