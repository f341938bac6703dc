// The first reader of the media buffer pool: the CRC-32 of every stream. Whole
// batches of frames go to the thread pool, where they are looked at in place;
// their sums are joined here in the order of the file.
#pragma once

#include <kelcore_threadpool.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "crc_join.h"
#include "media_pool.h"
#include "stream_table.h"
#include "worker.h"

namespace kelstream {

class Digest {
 public:
  // `workers` has two idle workers, or none.
  Digest(MediaPool &pool, KEL_THREADPOOL *workers) : pool_(pool), workers_(workers) {}

  // Reads one file's messages. False when there is no thread to be had.
  bool Start() { return worker_.Start("ks-digest", *this); }
  void Join() { worker_.Join(); }

  // After Join: the sum over all units that could be read.
  uint32_t Crc(uint32_t stream);
  // Memory ran out: some sums are wrong.
  bool failed() const { return failed_; }

 private:
  friend class Worker<Digest>;
  static constexpr size_t kBatch = 48;

  struct Record {
    CrcSum stream;
    CrcSum unit;  // of the unit that has not ended
    uint64_t messages = 0;
  };
  struct Batch {
    std::array<const Message *, kBatch> messages;
    std::array<uint32_t, kBatch> closed;  // of what belongs to units that end
    std::array<uint32_t, kBatch> open;    // of what comes behind them
    size_t count = 0;
    int32_t worker = -1;
    bool done = true;  // and its messages released
  };

  void Run();
  // False when the file has ended.
  bool Fill(Batch &batch);
  void Hand(Batch &batch);
  static int32_t Compute(void *batch);
  void Join(Batch &batch);
  void Add(const Message &message, uint32_t closed, uint32_t open);

  MediaPool &pool_;
  KEL_THREADPOOL *workers_;
  StreamTable<Record> streams_{"digest"};
  std::array<Batch, 2> batches_;
  bool failed_ = false;
  Worker<Digest> worker_;
};

}  // namespace kelstream
