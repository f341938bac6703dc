// The queue, bounded and unbounded, against a deque, with entries from the heap
// or from the pool allocator. Pops wait without limit where they must not sleep:
// one that does ends the run by its time limit.

#include <kelcore_queue.h>
#include <kelcore_smem.h>

#include <algorithm>
#include <deque>
#include <utility>

#include "fuzz.h"

namespace {

constexpr int32_t kUntouched = 0x5EAD;
constexpr uint32_t kEntryBytes = 32, kBlocksPerChunk = 4096;

using Entry = std::pair<const void *, int32_t>;

// Entries of an unbounded queue come from there as soon as their size is
// registered, which makes a chunk of blocks.
class Pool {
 public:
  explicit Pool(bool wanted) : wanted_(wanted) {
    if (!wanted_)
      return;
    FUZZ_EQUAL(KEL_SMalloc_Init(), 0);
    FUZZ_EQUAL(KEL_SMalloc_Register(kEntryBytes, "entries"), 0);
  }
  ~Pool() {
    if (!wanted_)
      return;
    Check(0);
    FUZZ_EQUAL(KEL_SMalloc_UnRegister(kEntryBytes), 0);
    FUZZ_EQUAL(KEL_SMalloc_Deinit(), 0);
  }
  Pool(const Pool &) = delete;
  Pool &operator=(const Pool &) = delete;

  void Check(size_t entries) const {
    if (!wanted_)
      return;
    uint32_t reserved = 0;
    FUZZ_EQUAL(KEL_SMemStatus(&reserved, nullptr, nullptr), 0);
    FUZZ_EQUAL(reserved, entries * kEntryBytes * kBlocksPerChunk);
  }

 private:
  const bool wanted_;
};

class Run {
 public:
  Run(FuzzedDataProvider &input, uint32_t limit, bool pooled)
      : input_(input), limit_(limit), pool_(pooled) {
    // An empty text is a name, too.
    const bool named = input.ConsumeBool();
    const std::string name = named ? fuzz::Text(input, 12) : std::string();
    queue_ = KEL_QueueCreate(named ? name.c_str() : nullptr, limit);
    FUZZ_CHECK(queue_ != nullptr);
    const char *told = KEL_QueueGetName(queue_);
    FUZZ_CHECK(named == (told != nullptr));
    FUZZ_CHECK(!named || name == told);
    Check();
  }
  ~Run() { KEL_QueueDestroy(queue_); }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void Step() {
    const auto choice = input_.ConsumeIntegral<uint8_t>();
    if (choice < 80)
      Push(KEL_QueuePush, false);
    else if (choice < 120)
      Push(KEL_QueuePush2Head, true);
    else if (choice < 160)
      Pop(KEL_QueuePop, false);
    else if (choice < 200)
      Pop(KEL_QueuePopTail, true);
    else if (choice < 230)
      Peek();
    else if (choice < 248)
      Release();
    else
      Reset();
    Check();
  }

 private:
  bool Full() const { return limit_ != 0 && model_.size() >= limit_; }
  // On an unbounded queue taking from both ends is allowed, its order is not
  // promised.
  bool OrderPromised() const { return limit_ != 0 || !took_oldest_ || !took_newest_; }

  void Push(int32_t (*push)(KEL_QUEUE *, void *, int32_t), bool in_front) {
    // All different, but null: that is legal, and told from nothing by the size.
    ++pushed_;
    const auto number = static_cast<int32_t>(pushed_ * 0x9E3779B9);
    void *data = reinterpret_cast<void *>(pushed_ % 16 != 0 ? pushed_ : 0);
    FUZZ_EQUAL(push(queue_, data, number), Full() ? -1 : 0);
    if (Full())
      return;
    model_.insert(in_front ? model_.begin() : model_.end(), {data, number});
    // Whoever slept last may have been woken by something else.
    if (std::exchange(waiting_, false))
      ++wake_ups_;
  }

  uint32_t Timeout() {
    const auto choice = input_.ConsumeIntegralInRange<int>(0, 3);
    if (choice < 2 || (model_.empty() && wake_ups_ == 0))
      return 0;
    return choice == 2 ? KEL_WAIT_FOREVER : 20000;
  }

  void Pop(void *(*pop)(KEL_QUEUE *, int32_t *, uint32_t), bool newest) {
    (newest ? took_newest_ : took_oldest_) = true;
    const uint32_t timeout = Timeout();
    int32_t number = kUntouched;
    // Without promised order the number tells what was taken.
    const bool numbered = !OrderPromised() || input_.ConsumeBool();
    const void *data = pop(queue_, numbered ? &number : nullptr, timeout);
    if (model_.empty() && timeout != 0) {
      --wake_ups_;
      waiting_ = true;
    }
    // A release without a sleeper costs an unbounded queue's next pop.
    if (model_.empty() || (limit_ == 0 && std::exchange(released_, false))) {
      FUZZ_CHECK(data == nullptr);
      FUZZ_EQUAL(number, kUntouched);
      return;
    }
    const auto taken =
        OrderPromised() ? (newest ? model_.end() - 1 : model_.begin()) : Find({data, number});
    CheckEntry(*taken, data, number, numbered);
    model_.erase(taken);
  }

  std::deque<Entry>::iterator Find(const Entry &entry) {
    const auto found = std::find(model_.begin(), model_.end(), entry);
    FUZZ_CHECK(found != model_.end());
    return found;
  }

  static void CheckEntry(const Entry &entry, const void *data, int32_t number, bool numbered) {
    FUZZ_CHECK(data == entry.first);
    FUZZ_EQUAL(number, numbered ? entry.second : kUntouched);
  }

  void Peek() {
    if (model_.empty())
      return;
    int32_t number = kUntouched;
    const bool numbered = !OrderPromised() || input_.ConsumeBool();
    const void *data = KEL_QueuePeek(queue_, numbered ? &number : nullptr);
    CheckEntry(OrderPromised() ? model_.front() : *Find({data, number}), data, number,
               numbered);
  }

  void Release() {
    FUZZ_EQUAL(KEL_QueuePopRelease(queue_), 0);
    released_ = true;
    ++wake_ups_;
  }

  void Reset() {
    FUZZ_EQUAL(KEL_QueueReset(queue_), 0);
    model_.clear();
    took_oldest_ = took_newest_ = false;
  }

  void Check() const {
    FUZZ_EQUAL(KEL_QueueGetSize(queue_), model_.size());
    FUZZ_EQUAL(KEL_QueueEmpty(queue_), model_.empty() ? 1 : 0);
    FUZZ_EQUAL(KEL_QueueFull(queue_), Full() ? 1 : 0);
    pool_.Check(limit_ == 0 ? model_.size() : 0);
  }

  FuzzedDataProvider &input_;
  const uint32_t limit_;  // 0: unbounded
  const Pool pool_;
  KEL_QUEUE *queue_;
  std::deque<Entry> model_;
  uintptr_t pushed_ = 0;
  bool released_ = false;
  bool waiting_ = false;   // the queue takes the last one to sleep for asleep
  uint32_t wake_ups_ = 0;  // sent and not waited for
  bool took_oldest_ = false;
  bool took_newest_ = false;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto limit = input.ConsumeIntegralInRange<uint32_t>(0, 9);
  // Seldom, as a chunk is cleared and cut for each run.
  const bool pooled = limit == 0 && input.ConsumeIntegralInRange<int>(0, 15) == 1;
  Run run(input, limit, pooled);
  for (int steps = 0; steps < 300 && input.remaining_bytes() > 0; ++steps)
    run.Step();
  return 0;
}
