// Checksums, and a string-keyed hash table with open addressing.

#include "kelcore_hash.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "internal/alloc.h"
#include "internal/checksum.h"
#include "internal/errno_guard.h"
#include "internal/trace.h"

KEL_TRACE_SOURCE("kelhash", "kelcore_hash")

namespace {

struct Slot {
  char *key;  // from strdup; null in a free slot and for a null key
  uint64_t value;
  uint8_t used;
  // In what would be padding: keys are compared only where their hashes agree.
  uint32_t hash;
};

}  // namespace

struct KEL_HASHMAP {
  uint32_t size;
  uint32_t count;
  Slot *table;
  uint8_t expandable;
  // Whether slots were freed since the table was empty: until then every slot
  // between an entry and its home is taken, and a free one ends a search.
  uint8_t has_holes;
};

namespace {

static_assert(sizeof(Slot) == 24 && offsetof(Slot, value) == 8 && offsetof(Slot, used) == 16);
static_assert(sizeof(KEL_HASHMAP) == 24 && offsetof(KEL_HASHMAP, table) == 8 &&
              offsetof(KEL_HASHMAP, expandable) == 16);

constexpr uint32_t kDefaultSlots = 256;
constexpr uint32_t kInsertProbes = 11;
constexpr uint32_t kLookupProbes = 10;

// Below this many bytes the tables are best everywhere.
constexpr uint32_t kShort = 32;

// ---- Hash table ----

uint32_t next_slot(const KEL_HASHMAP *map, uint32_t slot) {
  return slot + 1 < map->size ? slot + 1 : 0;
}

uint32_t crc32_of(const void *data, uint32_t length) {
  const auto *bytes = static_cast<const uint8_t *>(data);
  if (length < kShort)
    return ~kel::checksum::crc32_by_table(~0u, bytes, length);
  return ~kel::checksum::best().crc32(~0u, bytes, length);
}

uint32_t hash_of(const char *key) {
  if (key == nullptr)
    return 0;
  uint32_t h = crc32_of(key, static_cast<uint32_t>(strlen(key)));
  h *= 4097;
  h ^= h >> 22;
  h *= 17;
  h ^= h >> 9;
  h *= 1025;
  h ^= h >> 2;
  h *= 129;
  h ^= h >> 12;
  return (h >> 3) * 0x9E3779B1;
}

// A division costs more than all the rest of a lookup.
uint32_t home(uint32_t hash, uint32_t size) {
  return (size & (size - 1)) == 0 ? hash & (size - 1) : hash % size;
}

// An entry with a null key is never equal to anything.
bool holds(const Slot &slot, uint32_t hash, const char *key) {
  return slot.hash == hash && slot.used != 0 && slot.key != nullptr &&
         strcmp(slot.key, key) == 0;
}

Slot *find(const KEL_HASHMAP *map, const char *key) {
  if (key == nullptr)
    return nullptr;
  const uint32_t hash = hash_of(key);
  uint32_t at = home(hash, map->size);
  for (uint32_t probe = 0; probe < kLookupProbes; ++probe, at = next_slot(map, at)) {
    Slot &slot = map->table[at];
    if (holds(slot, hash, key))
      return &slot;
    if (slot.used == 0 && map->has_holes == 0)
      return nullptr;
  }
  return nullptr;
}

void release_key(char *key) {
  KEL_Free(key, 0);
}

void trace_rehash_failed() {
  TRACE_AS("KEL_Hashmap_Hash", KEL_LEVEL_ERROR, "rehash failed.\n");
}

// Doubles the table. The reinsertion copies the keys once more; the old copies
// stay behind, as they always have.
int32_t kelhashmap_resize(KEL_HASHMAP *map) {
  if (map->expandable == 0) {
    TRACE_ERROR("resizing is not allowed! (expandable FALSE)\n");
    return -1;
  }
  const uint32_t old_size = map->size;
  Slot *old_table = map->table;
  Slot *table = nullptr;
  if (kel::product_fits(old_size, 2))
    table = static_cast<Slot *>(
        KEL_Calloc(old_size * 2, sizeof(Slot), 0, kTraceSource.file, __LINE__, __func__));
  if (table == nullptr) {
    TRACE_ERROR("Out of memory\n");
    return -1;
  }
  map->size = old_size * 2;
  map->count = 0;
  map->table = table;
  map->has_holes = 0;
  for (uint32_t i = 0; i < old_size; ++i)
    if (old_table[i].used != 0 &&
        KEL_Hashmap_Hash(map, old_table[i].key, old_table[i].value) < 0)
      return -1;
  KEL_Free(old_table, 0);
  return 0;
}

Slot *free_slot(const KEL_HASHMAP *map, uint32_t hash) {
  uint32_t at = home(hash, map->size);
  for (uint32_t probe = 0; probe < kInsertProbes; ++probe, at = next_slot(map, at))
    if (map->table[at].used == 0)
      return &map->table[at];
  return nullptr;
}

void clear(KEL_HASHMAP *map, Slot &slot) {
  release_key(slot.key);
  slot = {};
  --map->count;
}

}  // namespace

uint32_t KEL_Hash_crc16(const void *data, uint32_t length) {
  const auto *bytes = static_cast<const uint8_t *>(data);
  if (length < kShort)
    return kel::checksum::crc16_by_table(0, bytes, length);
  return kel::checksum::best().crc16(0, bytes, length);
}

uint32_t KEL_Hash_crc32(const void *data, uint32_t length) {
  return crc32_of(data, length);
}

uint32_t KEL_Hashmap_string(const char *key, uint32_t size) {
  const uint32_t hash = hash_of(key);
  return size != 0 ? home(hash, size) : hash;
}

KEL_HASHMAP *KEL_Hashmap_Create(uint32_t size, uint8_t expandable) {
  KEL_HASHMAP *map = KEL_ALLOC(KEL_HASHMAP);
  if (map == nullptr) {
    TRACE_ERROR("Out of memory\n");
    return nullptr;
  }
  map->size = size != 0 ? size : kDefaultSlots;
  map->expandable = expandable;
  map->table = static_cast<Slot *>(
      KEL_Calloc(map->size, sizeof(Slot), 0, kTraceSource.file, __LINE__, __func__));
  if (map->table == nullptr) {
    TRACE_ERROR("Out of memory\n");
    const kel::ErrnoGuard keep_errno;
    KEL_Free(map, 0);
    return nullptr;
  }
  return map;
}

void KEL_Hashmap_Destroy(KEL_HASHMAP *map) {
  if (map == nullptr)
    return;
  free(map->table);
  free(map);
}

void KEL_Hashmap_DestroyFull(KEL_HASHMAP *map, void (*release)(uint64_t)) {
  if (map == nullptr)
    return;
  for (uint32_t i = 0; i < map->size; ++i) {
    release_key(map->table[i].key);
    if (release != nullptr)
      release(map->table[i].value);
  }
  free(map->table);
  free(map);
}

int32_t KEL_Hashmap_Hash(KEL_HASHMAP *map, const char *key, uint64_t value) {
  if (map->count >= map->size / 2 && kelhashmap_resize(map) != 0) {
    trace_rehash_failed();
    return -1;
  }
  const uint32_t hash = hash_of(key);
  Slot *slot = free_slot(map, hash);
  if (slot == nullptr) {
    // All places in reach are taken: one growth more spreads them.
    if (kelhashmap_resize(map) != 0) {
      trace_rehash_failed();
      return -1;
    }
    slot = free_slot(map, hash);
    if (slot == nullptr) {
      TRACE_ERROR("already rehash done. failed.\n");
      return -1;
    }
  }
  slot->value = value;
  slot->hash = hash;
  slot->used = 1;
  slot->key = key != nullptr ? strdup(key) : nullptr;
  ++map->count;
  return static_cast<int32_t>(slot - map->table);
}

int32_t KEL_Hashmap_Get(KEL_HASHMAP *map, const char *key, uint64_t *value) {
  const Slot *slot = find(map, key);
  *value = slot != nullptr ? slot->value : 0;
  if (slot != nullptr)
    return 0;
  TRACE_INFO("can not find key(%s)\n", key != nullptr ? key : "(null)");
  return -1;
}

int32_t KEL_Hashmap_Del(KEL_HASHMAP *map, const char *key) {
  Slot *slot = find(map, key);
  if (slot == nullptr) {
    TRACE_ERROR("can not find key(%s)\n", key != nullptr ? key : "(null)");
    return -1;
  }
  clear(map, *slot);
  map->has_holes = 1;
  return 0;
}

int32_t KEL_Hashmap_reset(KEL_HASHMAP *map) {
  for (uint32_t i = 0; i < map->size; ++i)
    if (map->table[i].used != 0)
      clear(map, map->table[i]);
  map->has_holes = 0;
  TRACE_INFO("remain size(%d) tblsize(%d)\n", static_cast<int32_t>(map->count),
             static_cast<int32_t>(map->size));
  return 0;
}

uint32_t KEL_Hashmap_size(KEL_HASHMAP *map) {
  return map->count;
}

void KEL_Hashmap_dump(KEL_HASHMAP *map) {
  printf("index\t used \t key \n");
  for (uint32_t i = 0; i < map->size; ++i)
    printf("%d \t %d \t %s \n", static_cast<int32_t>(i), map->table[i].used,
           map->table[i].key != nullptr ? map->table[i].key : "(null)");
}
