// The queue, bounded and unbounded, against a deque. Pops wait without limit
// where they must not sleep: one that does ends the run by its time limit.

#include <kelcore_queue.h>

#include <deque>
#include <utility>

#include "fuzz.h"

namespace {

constexpr int32_t kUntouched = 0x5EAD;

struct Run {
  FuzzedDataProvider &input;
  KEL_QUEUE *queue;
  uint32_t limit;  // 0: unbounded
  std::deque<std::pair<void *, int32_t>> model;
  bool released = false;
  uint32_t wake_ups = 0;  // of releases without a sleeper; there may be more
  // On an unbounded queue taking from both ends is allowed, its order is not
  // promised.
  bool took_head = false;
  bool took_tail = false;

  bool Full() const { return limit != 0 && model.size() >= limit; }
  bool OrderPromised() const { return limit != 0 || !took_head || !took_tail; }
};

void Push(Run &run, bool in_front) {
  const auto number = run.input.ConsumeIntegral<int32_t>();
  // Null is legal, and told from nothing by the size alone.
  void *data = reinterpret_cast<void *>(uintptr_t{run.input.ConsumeIntegral<uint8_t>()});
  const int32_t result = in_front ? KEL_QueuePush2Head(run.queue, data, number)
                                  : KEL_QueuePush(run.queue, data, number);
  FUZZ_EQUAL(result, run.Full() ? -1 : 0);
  if (result == 0)
    run.model.insert(in_front ? run.model.begin() : run.model.end(), {data, number});
}

void Pop(Run &run, bool newest) {
  (newest ? run.took_tail : run.took_head) = true;
  int32_t number = kUntouched;
  int32_t *to = run.input.ConsumeBool() ? &number : nullptr;
  uint32_t timeout = 0;
  if (run.input.ConsumeBool() && (!run.model.empty() || run.wake_ups > 0))
    timeout = KEL_WAIT_FOREVER;
  const void *data =
      newest ? KEL_QueuePopTail(run.queue, to, timeout) : KEL_QueuePop(run.queue, to, timeout);
  if (run.model.empty() && timeout != 0)
    --run.wake_ups;
  // A release without a sleeper costs an unbounded queue's next pop.
  const bool nothing =
      run.model.empty() || (run.limit == 0 && std::exchange(run.released, false));
  if (nothing) {
    FUZZ_CHECK(data == nullptr);
    FUZZ_EQUAL(number, kUntouched);
    return;
  }
  const auto expected = newest ? run.model.back() : run.model.front();
  if (run.OrderPromised()) {
    FUZZ_CHECK(data == expected.first);
    FUZZ_EQUAL(number, to != nullptr ? expected.second : kUntouched);
  }
  if (newest)
    run.model.pop_back();
  else
    run.model.pop_front();
}

void Peek(Run &run) {
  if (run.model.empty())
    return;
  int32_t number = kUntouched;
  const void *data = KEL_QueuePeek(run.queue, &number);
  if (!run.OrderPromised())
    return;
  FUZZ_CHECK(data == run.model.front().first);
  FUZZ_EQUAL(number, run.model.front().second);
}

void Release(Run &run) {
  FUZZ_EQUAL(KEL_QueuePopRelease(run.queue), 0);
  run.released = true;
  ++run.wake_ups;
}

void Reset(Run &run) {
  FUZZ_EQUAL(KEL_QueueReset(run.queue), 0);
  run.model.clear();
  run.took_head = run.took_tail = false;
}

void Check(const Run &run) {
  FUZZ_EQUAL(KEL_QueueGetSize(run.queue), run.model.size());
  FUZZ_EQUAL(KEL_QueueEmpty(run.queue), run.model.empty() ? 1 : 0);
  FUZZ_EQUAL(KEL_QueueFull(run.queue), run.Full() ? 1 : 0);
}

constexpr void (*kOperations[])(Run &) = {
    [](Run &run) { Push(run, false); },
    [](Run &run) { Push(run, false); },
    [](Run &run) { Push(run, true); },
    [](Run &run) { Pop(run, false); },
    [](Run &run) { Pop(run, true); },
    Peek,
    Release,
    Reset,
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto limit = input.ConsumeIntegralInRange<uint32_t>(0, 9);
  const std::string name = fuzz::Text(input, 12);
  Run run{input, KEL_QueueCreate(name.c_str(), limit), limit, {}};
  FUZZ_CHECK(run.queue != nullptr);
  FUZZ_EQUAL(std::string(KEL_QueueGetName(run.queue)), name);
  while (input.remaining_bytes() > 0) {
    input.PickValueInArray(kOperations)(run);
    Check(run);
  }
  KEL_QueueDestroy(run.queue);
  return 0;
}
