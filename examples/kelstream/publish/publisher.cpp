// Offers the progress of this run to other processes.

#include "publisher.h"

#include <kelcore_shm.h>
#include <mqueue.h>
#include <unistd.h>

namespace kelstream {

std::string Publisher::Open(const std::string &name) {
  std::string problem = NameProblem(name);
  if (!problem.empty())
    return problem;
  // Tries again when another one comes or goes at the same moment.
  constexpr int kTries = 10;
  for (int i = 0; i < kTries && shared_ == nullptr; ++i) {
    if (SharedTotals *const other = FindTotals(name)) {
      const ProcessId publisher = other->Publisher();
      if (!IsAlive(publisher)) {
        RemoveStale(other);
      } else if (other->state == ShareState::kLive) {
        DetachTotals(other);
        return "process " + std::to_string(publisher.number) + " publishes under this name";
      } else {
        DetachTotals(other);
      }
    }
    bool again = false;
    shared_ = CreateTotals(name, again);
    if (shared_ == nullptr && !again)
      break;
  }
  if (shared_ == nullptr)
    return "no shared memory to publish in";
  queue_name_ = QueueName(name, shared_->publisher);
  queue_.emplace(queue_name_);
  if (!queue_->ok())
    return "no message queue to publish on";
  shared_->state = ShareState::kLive;
  return {};
}

void Publisher::Close() {
  if (shared_ == nullptr)
    return;
  shared_->Store(totals_);
  shared_->state = ShareState::kFinished;
  mq_unlink(queue_name_.c_str());
  queue_.reset();
  KEL_ShmFree(shared_);
  shared_ = nullptr;
}

void Publisher::BeginFile(uint64_t size) {
  totals_.size = size;
  bytes_before_ = totals_.bytes;
  Update(0);
}

void Publisher::OnStreamFound(const FileReport &file, const StreamReport &stream) {
  ++totals_.streams;
  std::string text = Printable(file.file) + ": stream " + std::to_string(stream.index);
  if (stream.info.has_pid)
    text += ", PID " + std::to_string(stream.info.number);
  Tell(Event::kStreamFound, text + ": " + FormatText(stream));
}

void Publisher::OnFrame(const FrameReport &frame) {
  ++totals_.frames;
  totals_.bytes += frame.size;
}

void Publisher::EndFile(const FileReport &file, const std::string &how) {
  totals_.bytes = bytes_before_;
  for (const StreamReport &stream : file.streams)
    totals_.bytes += stream.bytes;
  ++totals_.files;
  Update(totals_.size);
  Tell(Event::kFileFinished, Printable(file.file) + ": " + how);
}

void Publisher::Update(uint64_t offset) {
  totals_.offset = offset;
  if (shared_ != nullptr)
    shared_->Store(totals_);
}

void Publisher::Tell(Event event, const std::string &text) {
  if (shared_ == nullptr)
    return;
  shared_->Store(totals_);
  constexpr int kTries = 20;
  constexpr useconds_t kPauseUs = 5000;
  const auto full = [this] {
    return shared_->events_sent - shared_->events_taken >= uint32_t{kEventsHeld};
  };
  // Who watches gets time to look; the oldest event gives way when nobody does.
  for (int i = 0; i < kTries && full() && IsAlive(shared_->Watcher()); ++i)
    usleep(kPauseUs);
  Event oldest{};
  std::string ignored;
  if (full() && queue_->Receive(oldest, ignored, 1)) {
    ++shared_->events_dropped;
    ++shared_->events_taken;
  }
  if (queue_->Send(event, text))
    ++shared_->events_sent;
}

}  // namespace kelstream
