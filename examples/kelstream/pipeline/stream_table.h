// Records of the streams of a file, found by a text key: the library's hash
// table over records from its pool allocator.
#pragma once

#include <kelcore_hash.h>
#include <kelcore_smem.h>

#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace kelstream {

// From stream numbers to addresses.
class StreamIndex {
 public:
  StreamIndex() { Clear(); }

  void Clear();
  void Add(uint32_t number, uint64_t address);
  // 0 when there is none.
  uint64_t Find(uint32_t number) const;

 private:
  struct Destroy {
    void operator()(KEL_HASHMAP *table) const {
      KEL_Hashmap_DestroyFull(table, [](uint64_t) {});
    }
  };
  struct Entry {
    uint32_t number;
    uint64_t address;
  };
  bool Insert(const Entry &entry);
  void Rebuild(uint32_t slots);

  std::vector<Entry> entries_;
  uint32_t slots_ = 0;
  std::unique_ptr<KEL_HASHMAP, Destroy> table_;
};

// The pool allocator keeps blocks by their size alone: there is one table of
// each kind of record, and no two kinds have the same size. Nor has any that of
// a list node or a queue entry, which the library would take from here, too.
template <typename Record>
class StreamTable {
  static_assert(std::is_trivially_destructible_v<Record> && alignof(Record) <= 8);
  static_assert(sizeof(Record) > 32);

 public:
  explicit StreamTable(const char *name) { KEL_SMalloc_Register(sizeof(Record), name); }
  ~StreamTable() { KEL_SMalloc_UnRegister(sizeof(Record)); }
  StreamTable(const StreamTable &) = delete;
  StreamTable &operator=(const StreamTable &) = delete;

  void Clear() {
    for (Record *record : records_)
      KEL_SFree(record, sizeof(Record));
    records_.clear();
    index_.Clear();
    last_ = nullptr;
  }

  // Null when there is none.
  Record *Find(uint32_t number) {
    // Messages about one stream come in a row.
    if (last_ == nullptr || last_number_ != number) {
      last_ = reinterpret_cast<Record *>(index_.Find(number));
      last_number_ = number;
    }
    return last_;
  }
  Record &Add(uint32_t number) {
    void *const block = KEL_SMalloc(sizeof(Record));
    if (block == nullptr)
      throw std::bad_alloc();
    auto *const record = new (block) Record();
    records_.push_back(record);
    index_.Add(number, reinterpret_cast<uint64_t>(record));
    last_ = record;
    last_number_ = number;
    return *record;
  }

  // In the order in which they were added.
  const std::vector<Record *> &records() const { return records_; }

 private:
  std::vector<Record *> records_;
  StreamIndex index_;
  Record *last_ = nullptr;
  uint32_t last_number_ = 0;
};

}  // namespace kelstream
