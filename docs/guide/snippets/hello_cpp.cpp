#include <chrono>
#include <cstdio>
#include <kelcore.hpp>

int main() {
  auto greetings = kel::queue<const char *>::create("greetings", 8).value_or_throw();
  auto producer =
      kel::thread::start({"producer"}, [&] { greetings.push("hello from C++", 1).or_throw(); });
  if (auto greeting = greetings.pop_for(std::chrono::seconds(1)))
    std::printf("%s %d\n", greeting.data, greeting.number);
}
