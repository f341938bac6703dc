/// @file
/// The C++17 face of libkelcore: everything in kelcore_hpp/.
///
/// Move-only owners over the C handles, std::chrono time-outs, typed containers,
/// kel::status and kel::result<T> for failures. Header-only: it adds no symbol to
/// the library, and no instruction to the calls that are made often.
/// docs/cpp.md is the guide.
#ifndef KELCORE_HPP
#define KELCORE_HPP

// What all of it stands on
#include "kelcore_hpp/error.hpp"
#include "kelcore_hpp/owner.hpp"
#include "kelcore_hpp/result.hpp"
#include "kelcore_hpp/span.hpp"
#include "kelcore_hpp/timeout.hpp"

// Threads and synchronisation
#include "kelcore_hpp/event.hpp"
#include "kelcore_hpp/mutex.hpp"
#include "kelcore_hpp/sema.hpp"
#include "kelcore_hpp/thread.hpp"
#include "kelcore_hpp/threadpool.hpp"
#include "kelcore_hpp/time.hpp"

// Lists, queues and messages
#include "kelcore_hpp/list.hpp"
#include "kelcore_hpp/list_mutex.hpp"
#include "kelcore_hpp/msg.hpp"
#include "kelcore_hpp/queue.hpp"

// Between processes
#include "kelcore_hpp/ipc.hpp"
#include "kelcore_hpp/shm.hpp"

// Memory managers
#include "kelcore_hpp/buffer.hpp"
#include "kelcore_hpp/smem.hpp"
#include "kelcore_hpp/virtmem.hpp"

// Files and parsing
#include "kelcore_hpp/bit.hpp"
#include "kelcore_hpp/byte.hpp"
#include "kelcore_hpp/file.hpp"
#include "kelcore_hpp/library.hpp"

// Hashing and byte buffers
#include "kelcore_hpp/circular.hpp"
#include "kelcore_hpp/hash.hpp"
#include "kelcore_hpp/ring.hpp"

#endif
