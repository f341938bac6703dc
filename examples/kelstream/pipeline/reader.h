// The reader thread: takes a file in pieces into the ring.
#pragma once

#include <cstdint>
#include <cstdio>

#include "staging_ring.h"
#include "worker.h"

namespace kelstream {

class Reader {
 public:
  // `file` is the reader's alone until Join.
  Reader(StagingRing &ring, FILE *file) : ring_(ring), file_(file) {}

  bool Start() { return worker_.Start("ks-reader", *this); }
  void Join() { worker_.Join(); }

  // After Join.
  uint64_t size() const { return size_; }
  int error() const { return error_; }  // errno of a read that failed

 private:
  friend class Worker<Reader>;
  void Run();

  StagingRing &ring_;
  FILE *file_;
  uint64_t size_ = 0;
  int error_ = 0;
  Worker<Reader> worker_;
};

}  // namespace kelstream
