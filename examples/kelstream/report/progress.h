// A progress bar on standard error.
#pragma once

#include <cstdint>

namespace kelstream {

class ProgressBar {
 public:
  // `total` bytes, 0 when unknown. Small files and a standard error that is no
  // terminal give none.
  explicit ProgressBar(uint64_t total);
  ~ProgressBar();
  ProgressBar(const ProgressBar &) = delete;
  ProgressBar &operator=(const ProgressBar &) = delete;

  bool enabled() const { return enabled_; }
  void Update(uint64_t done);

 private:
  uint64_t total_;
  bool enabled_;
  bool drawn_ = false;
};

}  // namespace kelstream
