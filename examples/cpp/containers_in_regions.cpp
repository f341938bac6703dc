// The standard's containers in the library's memory: a map in a region heap, which the
// rest of the process cannot starve, and list nodes in the pool allocator, which never
// search. What goes into them is parsed with the byte reader, which does not read past
// the end.
#include <cstdint>
#include <cstdio>
#include <kelcore.hpp>
#include <list>
#include <map>
#include <string>

namespace {

// Two bytes identifier, one byte length, a name. The last one is cut.
const uint8_t kTable[] = {0x01, 0x00, 5,   'v', 'i', 'd',  'e',  'o', 0x01, 0x01, 5,
                          'a',  'u',  'd', 'i', 'o', 0x01, 0x0c, 9,   's',  'u',  'b'};

using names = std::pmr::map<uint16_t, std::pmr::string>;

kel::status parse(kel::bytes table, names &into) {
  auto reader = kel::byte_reader::open(table);
  if (!reader)
    return reader.outcome();
  while (reader->remaining() > 0) {
    const auto id = reader->get_be<uint16_t>();
    uint32_t end = 0;
    const uint8_t length = reader->get_byte(end);
    std::pmr::string name(length, '\0', into.get_allocator());
    const kel::status got =
        reader->get({reinterpret_cast<uint8_t *>(name.data()), name.size()});
    if (!id || end != 0 || !got)
      return kel::errc::end_of_data;
    into.emplace(*id, std::move(name));
  }
  return {};
}

struct packet {
  uint64_t time_stamp;
  uint64_t bytes;
};

}  // namespace

int main() {
  auto heap = kel::region_heap::create(64 * 1024);
  if (!heap)
    return 1;
  const uint32_t free_before = heap->free_bytes();
  {
    kel::region_resource memory(*heap);
    names all(&memory);
    const kel::status parsed = parse(kTable, all);
    for (const auto &[id, name] : all)
      std::printf("%u %s\n", id, name.c_str());
    std::printf("then: %s\n", parsed.error().message().c_str());
    std::printf("the region is in use: %s\n", heap->free_bytes() < free_before ? "yes" : "no");
  }

  auto pools = kel::pool_allocator::start();
  auto nodes = kel::size_class::create(sizeof(packet) + 2 * sizeof(void *), "packet nodes");
  if (!pools || !nodes)
    return 1;
  // Whatever does not fit the class is refused by the null resource: nothing does.
  kel::pool_resource memory(std::pmr::null_memory_resource());
  std::pmr::list<packet> waiting(&memory);
  for (uint64_t i = 0; i < 1000; ++i)
    waiting.push_back({i, 188 * i});
  std::printf("%zu packets from the pool, the last of %llu bytes\n", waiting.size(),
              static_cast<unsigned long long>(waiting.back().bytes));
  return 0;
}
