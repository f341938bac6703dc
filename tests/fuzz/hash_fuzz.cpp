// The hash table as a sequence of operations, against slots kept in a map that
// are probed the way the table says it probes.

#include <kelcore_hash.h>
#include <kelcore_mem.h>

#include <map>
#include <optional>
#include <set>

#include "fuzz.h"

namespace {

constexpr uint32_t kReach = 11;  // slots that an insertion tries
constexpr uint32_t kSought = 10;
// Twelve equal keys double the table over and over; that is where we stop.
constexpr uint32_t kMostSlots = 1u << 9;

// Copies of keys that are not released: growing leaves them behind.
std::set<void *> copies;
bool following = false;  // others copy texts between runs
// The handle, then tables; destruction does not announce that it releases them.
// A growth that fails half-way abandons the old table.
std::vector<void *> blocks;

struct Entry {
  std::optional<std::string> key;
  uint64_t value;
};

class Model {
 public:
  Model(uint32_t size, bool expandable)
      : size_(size != 0 ? size : 256), expandable_(expandable) {}

  uint32_t count() const { return static_cast<uint32_t>(slots_.size()); }
  uint32_t size() const { return size_; }
  size_t abandoned() const { return abandoned_; }
  // As many copies of keys as entries with a key, when nothing is left behind.
  size_t keys() const {
    size_t keys = 0;
    for (const auto &[slot, entry] : slots_)
      keys += entry.key ? 1 : 0;
    return keys;
  }

  int32_t Insert(const std::optional<std::string> &key, uint64_t value) {
    if (count() >= size_ / 2 && !Grow())
      return -1;
    auto slot = Free(key);
    if (!slot && Grow())
      slot = Free(key);
    if (!slot)
      return -1;
    slots_[*slot] = {key, value};
    return static_cast<int32_t>(*slot);
  }

  std::optional<uint32_t> Find(const std::string &key) const {
    for (uint32_t probe = 0; probe < kSought; ++probe) {
      const auto entry = slots_.find(At(key, probe));
      if (entry != slots_.end() && entry->second.key == key)
        return entry->first;
    }
    return std::nullopt;
  }

  uint64_t Value(uint32_t slot) const { return slots_.at(slot).value; }
  void Erase(uint32_t slot) { slots_.erase(slot); }
  void Clear() { slots_.clear(); }

 private:
  uint32_t At(const std::optional<std::string> &key, uint32_t probe) const {
    const uint32_t home = KEL_Hashmap_string(key ? key->c_str() : nullptr, 0) % size_;
    return (home + probe) % size_;
  }

  std::optional<uint32_t> Free(const std::optional<std::string> &key) const {
    for (uint32_t probe = 0; probe < kReach; ++probe)
      if (const uint32_t slot = At(key, probe); slots_.count(slot) == 0)
        return slot;
    return std::nullopt;
  }

  bool Grow() {
    if (!expandable_)
      return false;
    const auto old = std::move(slots_);
    slots_.clear();
    size_ *= 2;
    for (const auto &[slot, entry] : old)
      if (Insert(entry.key, entry.value) < 0) {
        ++abandoned_;
        return false;
      }
    return true;
  }

  uint32_t size_;
  bool expandable_;
  size_t abandoned_ = 0;
  std::map<uint32_t, Entry> slots_;
};

// Few keys, so that they meet; now and then none, or any.
std::optional<std::string> Key(FuzzedDataProvider &input) {
  const auto choice = input.ConsumeIntegral<uint8_t>();
  if (choice == 255)
    return std::nullopt;
  if (choice >= 240)
    return fuzz::Text(input, 80);
  return "key" + std::to_string(choice);
}

const char *Pointer(const std::optional<std::string> &key) {
  return key ? key->c_str() : nullptr;
}

uint64_t released_sum;
uint32_t released_slots;

void Release(uint64_t value) {
  released_sum += value;
  ++released_slots;
}

class Run {
 public:
  Run(FuzzedDataProvider &input, uint32_t size, bool expandable)
      : input_(input), table_(KEL_Hashmap_Create(size, expandable)), model_(size, expandable) {
    FUZZ_CHECK(table_ != nullptr);
  }

  void Step() {
    switch (input_.ConsumeIntegralInRange<int>(0, 7)) {
      case 0:
      case 1:
      case 2:
      case 3:
        Insert();
        break;
      case 4:
      case 5:
        Look();
        break;
      case 6:
        Delete();
        break;
      default:
        if (input_.ConsumeIntegral<uint8_t>() < 16) {
          FUZZ_EQUAL(KEL_Hashmap_reset(table_), 0);
          model_.Clear();
        }
        break;
    }
    FUZZ_EQUAL(KEL_Hashmap_size(table_), model_.count());
    FUZZ_CHECK(copies.size() >= model_.keys());
  }

  void Finish(bool with_keys) {
    FUZZ_EQUAL(blocks.size(), 2 + model_.abandoned());
    if (!with_keys) {
      KEL_Hashmap_Destroy(table_);
      FUZZ_CHECK(copies.size() >= model_.keys());
      return;
    }
    const size_t held = copies.size();
    released_slots = 0;
    KEL_Hashmap_DestroyFull(table_, Release);
    FUZZ_EQUAL(released_slots, model_.size());
    FUZZ_EQUAL(copies.size(), held - model_.keys());
  }

 private:
  void Insert() {
    const auto key = Key(input_);
    const auto value = input_.ConsumeIntegral<uint16_t>();
    if (model_.size() > kMostSlots)
      return;
    const int32_t slot = model_.Insert(key, value);
    FUZZ_EQUAL(KEL_Hashmap_Hash(table_, Pointer(key), value), slot);
  }

  void Look() {
    const auto key = Key(input_);
    const auto slot = key ? model_.Find(*key) : std::nullopt;
    uint64_t value = 1;
    FUZZ_EQUAL(KEL_Hashmap_Get(table_, Pointer(key), &value), slot ? 0 : -1);
    FUZZ_EQUAL(value, slot ? model_.Value(*slot) : 0);
  }

  void Delete() {
    const auto key = Key(input_);
    const auto slot = key ? model_.Find(*key) : std::nullopt;
    FUZZ_EQUAL(KEL_Hashmap_Del(table_, Pointer(key)), slot ? 0 : -1);
    if (slot)
      model_.Erase(*slot);
  }

  FuzzedDataProvider &input_;
  KEL_HASHMAP *table_;
  Model model_;
};

void ReleaseWhatIsLeft() {
  following = false;
  for (void *copy : copies)
    free(copy);
  copies.clear();
  // Between the handle and the last table.
  for (size_t i = 1; i + 1 < blocks.size(); ++i)
    free(blocks[i]);
  blocks.clear();
}

}  // namespace

// The table's copies of keys, and the library's word of what it releases.
extern "C" {
char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text) {
  char *copy = __real_strdup(text);
  if (following)
    copies.insert(copy);
  return copy;
}
}

void KEL_MemTblAdd(void *block, uint32_t, uint32_t, const char *, int32_t, const char *) {
  blocks.push_back(block);
}

void KEL_MemTblRemove(void *block, uint32_t) {
  if (copies.erase(block) == 0)
    std::erase(blocks, block);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  following = true;
  FuzzedDataProvider input(data, size);
  const uint32_t slots = input.ConsumeIntegralInRange<uint32_t>(0, 48);
  const bool with_keys = input.ConsumeBool();
  Run run(input, slots, input.ConsumeBool());
  for (int steps = 0; steps < 300 && input.remaining_bytes() > 0; ++steps)
    run.Step();
  run.Finish(with_keys);
  ReleaseWhatIsLeft();
  return 0;
}
