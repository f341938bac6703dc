#include <kelcore.h>

#include <cstdio>
#include <memory>

// The C interface, with an owner that releases.
struct DestroyQueue {
  void operator()(KEL_QUEUE *queue) const { KEL_QueueDestroy(queue); }
};
using Queue = std::unique_ptr<KEL_QUEUE, DestroyQueue>;

int main() {
  Queue greetings(KEL_QueueCreate("greetings", 8));
  char text[] = "hello from C++";
  KEL_QueuePush(greetings.get(), text, 1);
  std::printf("%s\n", static_cast<const char *>(KEL_QueuePop(greetings.get(), nullptr, 0)));
}
