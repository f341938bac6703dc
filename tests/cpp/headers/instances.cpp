// Every member of every template: a header that compiles alone has only shown that
// its templates can be read.

#include "kelcore.hpp"

struct item {
  int value;
};
struct note : kel::message {};
enum class colour : uint8_t { red };

template class kel::span<const int>;
template class kel::result<int>;
template class kel::queue<item *>;
template class kel::queue<const item *>;
template class kel::channel<kel::message *>;
template class kel::channel<note *>;
template class kel::list<item *>;
template class kel::locked_list<item *>;
template class kel::hash_table<colour>;
template class kel::hash_table<item *>;
template class kel::ipc<item>;
template class kel::shared_memory<item>;

namespace {

void look(item &each) {
  ++each.value;
}
int32_t work(item &each) {
  return each.value;
}

// The member templates.
[[maybe_unused]] void use(item &it) {
  using std::chrono::seconds;
  auto bytes = kel::byte_reader::open({});
  static_cast<void>(bytes->get_be<int16_t>());
  static_cast<void>(bytes->peek_le<uint64_t>());
  uint32_t end = 0;
  static_cast<void>(bytes->get_le_unchecked<int64_t>(end));
  auto timer = kel::timer::create<look>(seconds(1), it);
  timer->start_periodic(std::chrono::duration<float>(0.5F));
  auto thread = kel::thread::start({}, [&it] { look(it); });
  auto pool = kel::thread_pool::create("pool", 1);
  static_cast<void>(pool->run<work>(it));
  auto mutex = kel::timed_mutex::create();
  static_cast<void>(mutex->try_lock_until(std::chrono::steady_clock::now()));
  static_cast<void>(kel::library::load("x")->symbol<int(int)>("y"));
  static_cast<void>(kel::this_thread::sleep_for(std::chrono::hours(1)));
  static_cast<void>(std::move(bytes).value_or_throw());
}

}  // namespace
