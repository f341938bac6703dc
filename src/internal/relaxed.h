// Words that one thread may read while another, holding a lock, writes them.
// A relaxed access costs nothing on our machines and keeps such reads defined.
#pragma once

#include <type_traits>

namespace kel {

template <typename T>
inline T load_relaxed(const T &word) {
  return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <typename T>
inline void store_relaxed(T &word, std::type_identity_t<T> value) {
  __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

}  // namespace kel
