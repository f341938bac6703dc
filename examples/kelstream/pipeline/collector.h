// The second reader of the media buffer pool: statistics. Adds up what the
// messages about a file tell, and passes on what others want to know at once.
#pragma once

#include <cstdint>
#include <string>

#include "media_pool.h"
#include "messages.h"
#include "report.h"
#include "stream_table.h"

namespace kelstream {

// Is told while a file is being read, on the collecting thread.
class Observer {
 public:
  virtual ~Observer() = default;
  // Everything is known of the stream that will be known before its frames.
  virtual void OnStreamFound(const FileReport &file, const StreamReport &stream) = 0;
  virtual void OnFrame(const FileReport &file, const FrameReport &frame) = 0;
  // Now and then, also while nothing comes. `offset`: how far the file was read.
  virtual void OnProgress(const FileReport &file, uint64_t offset) = 0;
};

class Collector {
 public:
  Collector(MediaPool &pool, Observer &observer) : pool_(pool), observer_(observer) {}

  // Returns after the last message of the file.
  EndOfFile Collect(FileReport &report);

 private:
  struct Record {
    StreamReport report;
    // Sound is counted in samples while the rate stays the same, to add exactly.
    uint64_t samples;
    uint32_t sample_rate;
    double seconds_before;  // at other rates
    FrameReport frame;      // to which a second field may come
    bool has_frame;
  };

  void OnMessage(const Message &message, FileReport &report);
  void AddUnit(const Unit &unit, Record &record, const FileReport &report);
  void AddSound(const Unit &unit, Record &record);
  void EndFrame(Record &record, const FileReport &report);
  void Finish(FileReport &report);

  MediaPool &pool_;
  Observer &observer_;
  StreamTable<Record> streams_{"statistics"};
  uint64_t offset_ = 0;
};

}  // namespace kelstream
