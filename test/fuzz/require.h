// Assertions of the fuzzers.

#ifndef TEST_FUZZ_REQUIRE_H_
#define TEST_FUZZ_REQUIRE_H_

#include <cstdlib>

namespace fuzz {

// Stops the fuzzer with the present input when the condition is false.
inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz

#endif  // TEST_FUZZ_REQUIRE_H_
