// What the examples in the C++ headers take from the program around them, by header.
#pragma once

#include <unistd.h>

#include <array>
#include <atomic>
#include <list>
#include <memory_resource>
#include <mutex>
#include <vector>

#include "kelcore.hpp"

using namespace std::chrono_literals;

struct frame {
  int32_t number;
};
struct job {
  void look();
};
extern frame f;
extern job j;
extern std::array<uint8_t, 64> room;

template <class T>
void use(T &&) {}

namespace bit_hpp {
inline const kel::bytes padded(room.data(), room.size());
}
namespace buffer_hpp {
uint32_t fill(void *data, uint32_t size);
}
namespace byte_hpp {
inline const kel::bytes bytes(room.data(), room.size());
}
namespace circular_hpp {
inline kel::writable_bytes packet(room.data(), room.size());
}
namespace error_hpp {
extern kel::mutex m;
}
namespace file_hpp {
inline kel::writable_bytes buffer(room.data(), room.size());
}
namespace ring_hpp {
extern int fd;
uint32_t parse(kel::bytes bytes);
}  // namespace ring_hpp
namespace shm_hpp {
struct counters {
  std::atomic<uint32_t> frames;
};
}  // namespace shm_hpp
namespace smem_hpp {
struct packet {
  char bytes[16];
};
}  // namespace smem_hpp
namespace thread_hpp {
extern ::job job;
void run(::job &);
}  // namespace thread_hpp
namespace threadpool_hpp {
extern ::frame frame;
int32_t decode(::frame &);
}  // namespace threadpool_hpp
namespace time_hpp {
extern kel::event due;
}
namespace timeout_hpp {
extern kel::event events;
}
