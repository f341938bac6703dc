// A progress bar on standard error.

#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace kelstream {

namespace {

constexpr uint64_t kLargeFile = 8388608;
constexpr uint64_t kWidth = 40;

}  // namespace

ProgressBar::ProgressBar(uint64_t total)
    : total_(total), enabled_(total > kLargeFile && isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
  if (drawn_)
    std::fputs("\r\033[K", stderr);
}

void ProgressBar::Update(uint64_t done) {
  if (!enabled_)
    return;
  drawn_ = true;
  done = std::min(done, total_);
  // Files of exabytes are not expected; a product of 64 bits is enough.
  const auto full = static_cast<size_t>(done * kWidth / total_);
  const std::string bar = std::string(full, '#') + std::string(kWidth - full, '.');
  std::fprintf(stderr, "\r[%s] %3u %%", bar.c_str(),
               static_cast<unsigned>(done * 100 / total_));
}

}  // namespace kelstream
