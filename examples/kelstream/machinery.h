// What takes a file apart, made once and used for one file after the other:
// reader thread -> ring -> parser thread -> media buffer pool -> digest thread
// (with the workers) and statistics (the main thread).
#pragma once

#include <kelcore_threadpool.h>

#include <memory>

#include "media_pool.h"
#include "signals.h"
#include "staging_ring.h"

namespace kelstream {

class Machinery {
 public:
  Machinery() {
    const SignalsBlocked blocked;
    // As many as the digest has batches.
    workers_.reset(KEL_ThreadPool_Create("ks-crc", 0, 0, 2));
  }

  // False when the system had not the means.
  bool ok() const { return ring_.ok() && pool_.ok() && workers_ != nullptr; }

  StagingRing &ring() { return ring_; }
  MediaPool &pool() { return pool_; }
  KEL_THREADPOOL *workers() { return workers_.get(); }

 private:
  struct Destroy {
    void operator()(KEL_THREADPOOL *workers) const { KEL_ThreadPool_Delete(workers); }
  };
  StagingRing ring_;
  MediaPool pool_;
  std::unique_ptr<KEL_THREADPOOL, Destroy> workers_;
};

}  // namespace kelstream
