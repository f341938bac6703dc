// The parser thread: takes what the ring holds, tells what it is, and has it
// cut into units that go to the media buffer pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "media_pool.h"
#include "messages.h"
#include "reader.h"
#include "sender.h"
#include "staging_ring.h"
#include "worker.h"

namespace kelstream {

class Parser {
 public:
  // Joins the reader at the end, to tell how it fared.
  Parser(StagingRing &ring, Reader &reader, MediaPool &pool)
      : ring_(ring), reader_(reader), sender_(pool) {}

  // From here on messages come, the last of them kEndOfFile. False when there
  // is no thread to be had, and then there are none.
  bool Start() { return worker_.Start("ks-parser", *this); }
  void Join() { worker_.Join(); }

 private:
  friend class Worker<Parser>;
  void Run();
  void ParseAll();
  void SkipTags();
  void ParseStream(Splitter &splitter);
  void ParseTransportStream();
  void Release(size_t count);

  StagingRing &ring_;
  Reader &reader_;
  Sender sender_;
  uint64_t offset_ = 0;  // of what the ring holds, in the file
  EndOfFile end_;
  Worker<Parser> worker_;
};

}  // namespace kelstream
