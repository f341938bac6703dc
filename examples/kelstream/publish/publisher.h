// Offers the progress of this run to other processes.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "event_queue.h"
#include "report.h"
#include "shared_totals.h"

namespace kelstream {

class Publisher {
 public:
  Publisher() = default;
  ~Publisher() { Close(); }
  Publisher(const Publisher &) = delete;
  Publisher &operator=(const Publisher &) = delete;

  // Returns an empty text, or why it cannot be done.
  std::string Open(const std::string &name);
  // Nothing is left in the system afterwards.
  void Close();
  bool open() const { return shared_ != nullptr; }

  void BeginFile(uint64_t size);
  void OnStreamFound(const FileReport &file, const StreamReport &stream);
  void OnFrame(const FrameReport &frame);
  void EndFile(const FileReport &file, const std::string &how);
  // Shows the others how far things are.
  void Update(uint64_t offset);

 private:
  void Tell(Event event, const std::string &text);

  SharedTotals *shared_ = nullptr;
  std::string queue_name_;
  std::optional<EventQueue> queue_;
  Totals totals_;
  uint64_t bytes_before_ = 0;  // of the files before this one
};

}  // namespace kelstream
