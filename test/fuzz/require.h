// What a fuzzer requires to hold.

#ifndef TEST_FUZZ_REQUIRE_H_
#define TEST_FUZZ_REQUIRE_H_

#include <cstdlib>

namespace fuzz {

// Stops the fuzzer with the input that led here when something that must hold does not.
inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz

#endif  // TEST_FUZZ_REQUIRE_H_
