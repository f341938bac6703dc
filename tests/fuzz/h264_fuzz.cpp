// H.264: damaged streams, whole and in pieces.

#include "h264_splitter.h"
#include "split.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::CheckSplitter<kelstream::H264Splitter>(data, size);
  return 0;
}
