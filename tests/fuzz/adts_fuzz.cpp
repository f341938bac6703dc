// AAC in ADTS: damaged streams, whole and in pieces.

#include "adts_splitter.h"
#include "split.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::CheckSplitter<kelstream::AdtsSplitter>(data, size);
  return 0;
}
