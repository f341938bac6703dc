// The reader thread: takes a file in pieces, tells what it is, and has it cut
// into units that go to the consumer.
#pragma once

#include <kelcore_thread.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "messages.h"
#include "probe.h"
#include "sender.h"
#include "stream.h"

namespace kelstream {

class Reader {
 public:
  // `file` is the reader's alone until Join.
  Reader(Exchange &exchange, FILE *file);
  ~Reader() { Join(); }
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;

  // From here on messages come, the last of them kEndOfFile. False when there
  // is no thread to be had, and then there are none.
  bool Start();
  void Join();

 private:
  static constexpr size_t kPiece = 262144;

  void Run();
  void ReadAll();
  // Appends to the piece what the file has, up to its full size.
  void Fill();
  void Drop(size_t count);
  void SkipTags();
  std::unique_ptr<Splitter> MakeSplitter();

  FILE *file_;
  Sender sender_;
  KEL_THREAD *thread_ = nullptr;

  std::vector<uint8_t> piece_;
  size_t filled_ = 0;
  uint64_t offset_ = 0;  // of the piece in the file
  bool at_end_ = false;
  EndOfFile end_;
};

}  // namespace kelstream
