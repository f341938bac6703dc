// Records of the streams of a file, found by a text key.

#include "stream_table.h"

#include <string>

namespace kelstream {

namespace {

constexpr uint32_t kFirstSlots = 64;

std::string KeyOf(uint32_t number) {
  return "stream " + std::to_string(number);
}

}  // namespace

void StreamIndex::Clear() {
  entries_.clear();
  Rebuild(kFirstSlots);
}

uint64_t StreamIndex::Find(uint32_t number) const {
  uint64_t address = 0;
  KEL_Hashmap_Get(table_.get(), KeyOf(number).c_str(), &address);
  return address;
}

// False when the table has no place where it would be found again: it does not
// look further than ten slots from home.
bool StreamIndex::Insert(const Entry &entry) {
  return KEL_Hashmap_Hash(table_.get(), KeyOf(entry.number).c_str(), entry.address) >= 0 &&
         Find(entry.number) == entry.address;
}

void StreamIndex::Add(uint32_t number, uint64_t address) {
  entries_.push_back({number, address});
  if (!Insert(entries_.back()))
    Rebuild(slots_ * 2);
}

// The table could grow by itself, but would leave its keys behind.
void StreamIndex::Rebuild(uint32_t slots) {
  for (bool complete = false; !complete; slots *= 2) {
    table_.reset(KEL_Hashmap_Create(slots, 0));
    if (table_ == nullptr)
      throw std::bad_alloc();
    slots_ = slots;
    complete = true;
    for (const Entry &entry : entries_)
      complete = complete && Insert(entry);
  }
}

}  // namespace kelstream
