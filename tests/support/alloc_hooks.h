// Follows the library's allocations through its replaceable announcements.
//
//     AllocHooks hooks;
//     hooks.on_add = [](void *block, uint32_t size) { ... };
//     KEL_...();
//     EXPECT_EQ(hooks.adds.size(), 1u);
#pragma once

#include <stdint.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

// One at a time.
class AllocHooks {
 public:
  struct Add {
    void *block;
    uint32_t size, align;
    std::string file;
    int32_t line;
    std::string func;
  };
  struct Update {
    void *old_block, *new_block;
    uint32_t size;
  };
  struct Remove {
    void *block;
    uint32_t flag;
  };

  AllocHooks();
  ~AllocHooks();
  AllocHooks(const AllocHooks &) = delete;
  AllocHooks &operator=(const AllocHooks &) = delete;

  // Called on each announcement, after it has been noted.
  std::function<void(void *block, uint32_t size)> on_add;

  std::vector<Add> adds;
  std::vector<Update> updates;
  std::vector<Remove> removes;
  // Announced and not yet removed, by this count.
  int live() const { return static_cast<int>(adds.size()) - static_cast<int>(removes.size()); }

  std::mutex mutex;  // held while the vectors grow
};
