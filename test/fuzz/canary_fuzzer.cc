// A fuzzer with one bug of each kind that the others look for, to prove that they would find and
// report it: an input that begins with "bug" leads to the bug that its next letter names.

#include <cstddef>
#include <cstdint>
#include <limits>

#include "test/fuzz/require.h"

namespace {

// The compiler must neither see the bugs, which it would refuse, nor remove them.
template <typename T>
T opaque(T value) {
  asm volatile("" : "+r"(value) : : "memory");
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 4 || data[0] != 'b' || data[1] != 'u' || data[2] != 'g') return 0;
  switch (data[3]) {
    case 'a':
      opaque(data[size]);
      break;
    case 'u':
      opaque(opaque(std::numeric_limits<int>::max()) + 1);
      break;
    case 'r':
      fuzz::require(false);
      break;
  }
  return 0;
}
