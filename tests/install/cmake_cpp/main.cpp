// A C++ program outside this project, with both ways to write the header.
#include <kelcore/kelcore.h>

#include <cstdint>
#include <iostream>
#include <memory>

#include "kelcore_ring.h"

int main() {
  const std::unique_ptr<KEL_RING, decltype(&KELRing_Destroy)> ring(KELRing_Create(16),
                                                                   &KELRing_Destroy);
  std::uint32_t size = 0;
  const bool empty = KELRing_GetWBuf(ring.get(), &size) != nullptr && size == 16;
  std::cout << "hello " << empty << "\n";
}
