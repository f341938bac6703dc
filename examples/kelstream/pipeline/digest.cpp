// The first reader of the media buffer pool.

#include "digest.h"

#include "trace.h"

namespace kelstream {

void Digest::Run() {
  size_t turn = 0;
  for (bool more = true; more; turn ^= 1) {
    Batch &batch = batches_[turn];
    Join(batch);
    // Never sleeps on frames that the producer may need.
    if (pool_.Drained(Consumer::kDigest))
      Join(batches_[turn ^ 1]);
    more = Fill(batch);
    Hand(batch);
  }
  Join(batches_[turn]);
  Join(batches_[turn ^ 1]);
}

bool Digest::Fill(Batch &batch) {
  batch.count = 0;
  while (batch.count < kBatch && (batch.count == 0 || !pool_.Drained(Consumer::kDigest))) {
    const Message *const message = pool_.Receive(Consumer::kDigest);
    if (message == nullptr)
      continue;
    batch.messages[batch.count++] = message;
    if (message->word == kEndOfFile)
      return false;
  }
  return true;
}

void Digest::Hand(Batch &batch) {
  batch.done = false;
  batch.worker = KEL_ThreadPool_Run(workers_, &Digest::Compute, &batch);
  if (batch.worker < 0)
    Compute(&batch);
}

int32_t Digest::Compute(void *argument) {
  auto &batch = *static_cast<Batch *>(argument);
  for (size_t i = 0; i < batch.count; ++i) {
    const Message &message = *batch.messages[i];
    const auto *const bytes = static_cast<const uint8_t *>(message.data);
    batch.closed[i] = KEL_Hash_crc32(bytes, message.closed);
    batch.open[i] = KEL_Hash_crc32(bytes + message.closed, message.size - message.closed);
  }
  return 0;
}

void Digest::Join(Batch &batch) {
  if (batch.done)
    return;
  if (batch.worker >= 0)
    KEL_ThreadPool_Stop(workers_, batch.worker, nullptr);
  for (size_t i = 0; i < batch.count; ++i) {
    const Message &message = *batch.messages[i];
    if (message.word == kUnits && !failed_) {
      try {
        Add(message, batch.closed[i], batch.open[i]);
      } catch (const std::bad_alloc &) {
        failed_ = true;
      }
    }
    pool_.Release(Consumer::kDigest, message);
  }
  batch.done = true;
}

void Digest::Add(const Message &message, uint32_t closed, uint32_t open) {
  Record *record = streams_.Find(message.stream);
  if (record == nullptr)
    record = &streams_.Add(message.stream);
  ++record->messages;
  record->unit.Append(closed, message.closed);
  if (message.unit_count > 0) {
    if (message.units[0].readable)
      record->stream.Append(record->unit.value, record->unit.length);
    record->unit = {};
  }
  record->unit.Append(open, message.size - message.closed);
}

uint32_t Digest::Crc(uint32_t stream) {
  const Record *const record = streams_.Find(stream);
  if (record == nullptr)
    return 0;
  KELSTREAM_TRACE(KEL_LEVEL_DEBUG, "stream %u: %08x over %llu bytes in %llu messages\n",
                  unsigned{stream}, unsigned{record->stream.value},
                  static_cast<unsigned long long>(record->stream.length),
                  static_cast<unsigned long long>(record->messages));
  return record->stream.value;
}

}  // namespace kelstream
