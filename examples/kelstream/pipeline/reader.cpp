// The reader thread.

#include "reader.h"

#include <kelcore_file.h>

#include <cerrno>

#include "trace.h"

namespace kelstream {

void Reader::Run() {
  while (uint8_t *const room = ring_.BeginWrite()) {
    errno = 0;
    const uint64_t count = KEL_FileRead(file_, room, StagingRing::kPiece);
    if (count < StagingRing::kPiece && std::ferror(file_) != 0)
      error_ = errno != 0 ? errno : EIO;
    size_ += count;
    KELSTREAM_TRACE(KEL_LEVEL_DEBUG, "piece of %llu bytes\n",
                    static_cast<unsigned long long>(count));
    ring_.EndWrite(static_cast<uint32_t>(count));
    if (count == 0)
      return;
    // Behind a failure, or the end, there is nothing more.
    if (count < StagingRing::kPiece && ring_.BeginWrite() != nullptr) {
      ring_.EndWrite(0);
      return;
    }
  }
}

}  // namespace kelstream
