// A media pool with one writer and two readers on threads of their own. A reader
// sleeps on its event until the writer has committed a frame. Failures throw: this
// program cannot go on without what it asks for, and says so in one place.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <kelcore.hpp>

namespace {

constexpr uint32_t kFrames = 40;
constexpr uint32_t kFrameBytes = 1000;

struct consumer {
  kel::media_reader reader;
  kel::event committed = kel::event::create().value_or_throw();
  uint32_t frames = 0;
  uint64_t sum = 0;
};

void consume(consumer &me, kel::event &room) {
  while (me.frames < kFrames) {
    me.committed.wait(kel::infinite).or_throw();
    const auto frame = me.reader.next();
    for (const uint8_t byte : frame->contents())
      me.sum += byte;
    ++me.frames;
    me.reader.done().or_throw();
    room.send();
  }
}

void run() {
  // Room for a few frames only: the writer has to wait for the readers.
  auto pool = kel::media_pool::create({8 * kFrameBytes, kFrameBytes, 6}).value_or_throw();
  auto room = kel::event::create().value_or_throw();
  consumer consumers[2];
  for (consumer &each : consumers)
    each.reader = pool.attach().value_or_throw();

  kel::thread threads[2];
  for (int i = 0; i < 2; ++i)
    threads[i] = kel::thread::start({"consumer"}, [&, i] {
                   consume(consumers[i], room);
                 }).value_or_throw();

  for (uint32_t number = 0; number < kFrames; ++number) {
    auto frame = pool.offer();
    while (!frame) {
      room.wait(kel::infinite).or_throw();
      frame = pool.offer();
    }
    frame->size = kFrameBytes / 2 + number;
    std::memset(frame->data, static_cast<int>(number), frame->size);
    frame->time_stamp = number;
    pool.commit(*frame).or_throw();
    for (consumer &each : consumers)
      each.committed.send();
  }

  for (kel::thread &each : threads)
    each.join().value_or_throw();
  for (const consumer &each : consumers)
    std::printf("%u frames, sum of all bytes %llu\n", each.frames,
                static_cast<unsigned long long>(each.sum));
  std::printf("%u frames left in the pool\n", pool.held());
}

}  // namespace

int main() {
  try {
    run();
  } catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
