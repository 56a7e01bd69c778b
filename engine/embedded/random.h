// Repeatable chance: the same numbers on every machine, which the standard library's distributions
// do not promise.

#ifndef ENGINE_EMBEDDED_RANDOM_H_
#define ENGINE_EMBEDDED_RANDOM_H_

#include <concepts>
#include <cstdint>

namespace embedded {

// Spreads a number evenly over 64 bits (the finaliser of SplitMix64).
constexpr std::uint64_t spread(std::uint64_t value) {
  value += 0x9e3779b97f4a7c15;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
  value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
  return value ^ (value >> 31);
}

// A number that depends on all the arguments and their order.
constexpr std::uint64_t chance(std::uint64_t seed, std::unsigned_integral auto... rest) {
  std::uint64_t value = spread(seed);
  ((value = spread(value ^ rest)), ...);
  return value;
}

// A sequence of chances. Not safe for use by several threads.
class Random {
 public:
  // Near seeds give far sequences.
  explicit Random(std::uint64_t seed) : state_(spread(seed)) {}

  std::uint64_t next() { return spread(state_++); }
  // At least 0, less than 1.
  double nextFraction() { return static_cast<double>(next() >> 11) * 0x1p-53; }

 private:
  std::uint64_t state_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_RANDOM_H_
