// A value of any type that crosses between JavaScript and the scripted engine.

#ifndef TEST_ENGINE_VALUE_H_
#define TEST_ENGINE_VALUE_H_

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace scripted {

struct Field;
struct Value;
using Array = std::vector<Value>;
using Bytes = std::vector<std::uint8_t>;
using Record = std::vector<Field>;

struct Value {
  // std::monostate stands for a value that is not there. Integers are std::int64_t whenever they
  // fit, so std::uint64_t holds only what is larger.
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Bytes, Array,
               Record>
      data;
};

struct Field {
  std::string name;
  Value value;
};

}  // namespace scripted

#endif  // TEST_ENGINE_VALUE_H_
