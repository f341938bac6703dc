// Pairs of functions that do the same: c_x by the C calls, cpp_x by the wrapper.
// codegen_test compares what the compiler makes of them, instruction by
// instruction. An owner is one pointer, so the C side takes a pointer to a handle.

#include <chrono>
#include <mutex>

#include "kelcore.h"
#include "kelcore.hpp"

using namespace std::chrono_literals;

struct item {
  int value;
};
struct ticket : kel::message {};

extern "C" {

void c_mutex_lock(KEL_MUTEX **m) {
  KEL_MutexLock(*m, KEL_WAIT_FOREVER);
}
void cpp_mutex_lock(kel::mutex &m) {
  m.lock();
}

void c_mutex_unlock(KEL_MUTEX **m) {
  KEL_MutexUnLock(*m);
}
void cpp_mutex_unlock(kel::mutex &m) {
  m.unlock();
}

bool c_mutex_try_lock(KEL_MUTEX **m) {
  return KEL_MutexLock(*m, 0) == 0;
}
bool cpp_mutex_try_lock(kel::mutex &m) {
  return m.try_lock();
}

bool c_mutex_timed(KEL_MUTEX **m) {
  return KEL_MutexLock(*m, 50) == 0;
}
bool cpp_mutex_timed(kel::timed_mutex &m) {
  return m.try_lock_for(50ms);
}

// A section, as programs write it. What it holds is volatile, so that it stays. It
// does not end its function: there the C side may jump where a guard, whose
// destructor must see an exception stop, calls and returns.
void c_mutex_section(KEL_MUTEX **m, volatile int *count) {
  KEL_MutexLock(*m, KEL_WAIT_FOREVER);
  *count = 1;
  KEL_MutexUnLock(*m);
  *count = 2;
}
void cpp_mutex_section(kel::mutex &m, volatile int *count) {
  {
    const std::lock_guard hold(m);
    *count = 1;
  }
  *count = 2;
}

int32_t c_semaphore_get(KEL_SEMA **s) {
  return KEL_SemaGet(*s, 100);
}
int32_t cpp_semaphore_get(kel::semaphore &s) {
  return s.get(100ms).code();
}

int32_t c_semaphore_get_for_ever(KEL_SEMA **s) {
  return KEL_SemaGet(*s, KEL_WAIT_FOREVER);
}
int32_t cpp_semaphore_get_for_ever(kel::semaphore &s) {
  return s.get(kel::infinite).code();
}

int32_t c_semaphore_put(KEL_SEMA **s) {
  return KEL_SemaPut(*s);
}
int32_t cpp_semaphore_put(kel::semaphore &s) {
  return s.put().code();
}

int32_t c_event_send(KEL_SEMA **e) {
  return KEL_EventSend(*e);
}
int32_t cpp_event_send(kel::event &e) {
  return e.send().code();
}

bool c_event_wait(KEL_SEMA **e) {
  return KEL_EventWait(*e, 20) == 0;
}
bool cpp_event_wait(kel::event &e) {
  return e.wait(20ms).ok();
}

int32_t c_queue_push(KEL_QUEUE **q, item *i) {
  return KEL_QueuePush(*q, i, 7);
}
int32_t cpp_queue_push(kel::queue<item *> &q, item *i) {
  return q.push(i, 7).code();
}

item *c_queue_pop(KEL_QUEUE **q) {
  return static_cast<item *>(KEL_QueuePop(*q, nullptr, 1000));
}
item *cpp_queue_pop(kel::queue<item *> &q) {
  return q.pop(1s);
}

int c_queue_pop_number(KEL_QUEUE **q) {
  int32_t number = 0;
  const item *i = static_cast<item *>(KEL_QueuePop(*q, &number, KEL_WAIT_FOREVER));
  return i != nullptr ? i->value + number : -1;
}
int cpp_queue_pop_number(kel::queue<item *> &q) {
  int32_t number = 0;
  const item *i = q.pop(number, kel::infinite);
  return i != nullptr ? i->value + number : -1;
}

void c_queue_pop_entry(KEL_QUEUE **q, item **data, int32_t *number) {
  int32_t param = 0;
  item *taken = static_cast<item *>(KEL_QueuePop(*q, &param, KEL_WAIT_FOREVER));
  const int32_t taken_number = param;  // before *data may change it
  *data = taken;
  *number = taken_number;
}
void cpp_queue_pop_entry(kel::queue<item *> &q, item **data, int32_t *number) {
  const auto taken = q.pop_entry(kel::infinite);
  *data = taken.data;
  *number = taken.number;
}

int32_t c_channel_send(KEL_MSG **c, KEL_MSG_DESC *m) {
  return KEL_MsgSend(*c, m);
}
int32_t cpp_channel_send(kel::channel<ticket *> &c, ticket *m) {
  return c.send(m).code();
}

uint32_t c_byte_get(KEL_BYTE **r, uint32_t *end) {
  return static_cast<uint8_t>(KELByte_Get_char(*r, end));
}
uint32_t cpp_byte_get(kel::byte_reader &r, uint32_t &end) {
  return r.get_byte(end);
}

uint32_t c_byte_get_be32(KEL_BYTE **r, uint32_t *end) {
  return KELByte_Get_be_uint32(*r, end);
}
uint32_t cpp_byte_get_be32(kel::byte_reader &r, uint32_t &end) {
  return r.get_be_unchecked<uint32_t>(end);
}

// Checked, as a careful C program does it, also for a reader that is behind the end. It
// says what is rare: otherwise the compiler guesses, and lays the two sides out in
// different orders.
uint32_t c_byte_checked(KEL_BYTE **r) {
  if (__builtin_expect(KELByte_Remain(*r) < sizeof(uint32_t), 0))
    return 0;
  uint32_t end = 0;
  const uint32_t value = KELByte_Get_le_uint32(*r, &end);
  return __builtin_expect(end != 0, 0) ? 0 : value;
}
uint32_t cpp_byte_checked(kel::byte_reader &r) {
  return r.get_le<uint32_t>().value_or(0);
}

uint32_t c_bit_get(KEL_BIT **b) {
  return KELBitGetBit(*b, 5);
}
uint32_t cpp_bit_get(kel::bit_reader &b) {
  return b.get(5);
}

uint32_t c_ring_commit(KEL_RING **r, uint32_t n) {
  return KELRing_FillWBuf(*r, static_cast<int32_t>(n));
}
uint32_t cpp_ring_commit(kel::ring &r, uint32_t n) {
  return r.commit(n);
}

uint32_t c_ring_consume(KEL_RING **r, uint32_t n) {
  return KELRing_DelRBuf(*r, n);
}
uint32_t cpp_ring_consume(kel::ring &r, uint32_t n) {
  return r.consume(n);
}

uint8_t c_ring_first(KEL_RING **r) {
  uint32_t held;
  const uint8_t *from = KELRing_GetRBuf(*r, &held);
  return held != 0 ? from[0] : uint8_t{0};
}
uint8_t cpp_ring_first(kel::ring &r) {
  const kel::bytes data = r.readable();
  return !data.empty() ? data[0] : uint8_t{0};
}

int32_t c_circular_push(KEL_CIRCULAR **c, const uint8_t *from) {
  return KELCircular_Push(*c, from, 188);
}
int32_t cpp_circular_push(kel::circular &c, const uint8_t *from) {
  return c.push({from, 188}).code();
}

int c_list_sum(KEL_NLIST **l) {
  int sum = 0;
  for (const KEL_NLIST_NODE *n = KEL_NListGetHead(*l); n != nullptr; n = n->next)
    sum += static_cast<const item *>(n->data)->value;
  return sum;
}
int cpp_list_sum(kel::list<item *> &l) {
  int sum = 0;
  for (const item &each : l)
    sum += each.value;
  return sum;
}

void c_owner_end(KEL_MUTEX **m, volatile int *count) {
  if (*m != nullptr)
    KEL_MutexDestroy(*m);
  *count = 1;
}
void cpp_owner_end(kel::mutex &m, volatile int *count) {
  m.~mutex();
  *count = 1;
}

}  // extern "C"
