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

// Lists, queues and messages
#include "kelcore_hpp/msg.hpp"
#include "kelcore_hpp/queue.hpp"

// Files and parsing
#include "kelcore_hpp/byte.hpp"

// Byte buffers
#include "kelcore_hpp/circular.hpp"
#include "kelcore_hpp/ring.hpp"

#endif
