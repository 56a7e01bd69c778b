// Turns the engine interface's types into values and back.

#ifndef TEST_ENGINE_CONVERSION_H_
#define TEST_ENGINE_CONVERSION_H_

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include "test/engine/record_fields.h"
#include "test/engine/value.h"

namespace scripted {

// Conversion<T>::toValue and, where a value can be taken back, ::fromValue, which throws
// std::invalid_argument when the value has another type or does not fit.
template <typename T>
struct Conversion;

template <typename T>
Value toValue(const T& object) {
  return Conversion<T>::toValue(object);
}

template <typename T>
T fromValue(const Value& value) {
  return Conversion<T>::fromValue(value);
}

template <typename T>
Field named(std::string name, const T& object) {
  return {std::move(name), toValue(object)};
}

// The alternative `T` of a value.
template <typename T>
const T& as(const Value& value, const char* expected) {
  const T* alternative = std::get_if<T>(&value.data);
  if (alternative == nullptr) throw std::invalid_argument(std::string("expected ") + expected);
  return *alternative;
}

inline bool isAbsent(const Value& value) {
  return std::holds_alternative<std::monostate>(value.data);
}

template <>
struct Conversion<Value> {
  static Value toValue(const Value& value) { return value; }
  static Value fromValue(const Value& value) { return value; }
};

template <>
struct Conversion<bool> {
  static Value toValue(bool flag) { return {flag}; }
  static bool fromValue(const Value& value) { return as<bool>(value, "a boolean"); }
};

template <std::integral T>
struct Conversion<T> {
  static Value toValue(T number) {
    if (std::in_range<std::int64_t>(number)) return {static_cast<std::int64_t>(number)};
    return {static_cast<std::uint64_t>(number)};
  }
  static T fromValue(const Value& value) {
    if (const auto* large = std::get_if<std::uint64_t>(&value.data)) return narrowed(*large);
    return narrowed(as<std::int64_t>(value, "an integer"));
  }

 private:
  static T narrowed(auto number) {
    if (!std::in_range<T>(number)) {
      throw std::invalid_argument(std::to_string(number) + " is out of range");
    }
    return static_cast<T>(number);
  }
};

template <std::floating_point T>
struct Conversion<T> {
  static Value toValue(T number) { return {static_cast<double>(number)}; }
  static T fromValue(const Value& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value.data)) {
      return static_cast<T>(*integer);
    }
    return static_cast<T>(as<double>(value, "a number"));
  }
};

// As numbers, so that values without a name can be sent as well.
template <typename T>
requires std::is_enum_v<T>
struct Conversion<T> {
  using Number = std::underlying_type_t<T>;
  static Value toValue(T enumerator) { return scripted::toValue(static_cast<Number>(enumerator)); }
  static T fromValue(const Value& value) {
    return static_cast<T>(scripted::fromValue<Number>(value));
  }
};

// Text that is not to be UTF-8 is given as its bytes.
template <>
struct Conversion<std::string> {
  static Value toValue(const std::string& text) { return {text}; }
  static std::string fromValue(const Value& value) {
    if (const auto* bytes = std::get_if<Bytes>(&value.data)) return {bytes->begin(), bytes->end()};
    return as<std::string>(value, "a string");
  }
};

template <>
struct Conversion<Bytes> {
  static Value toValue(const Bytes& bytes) { return {bytes}; }
  static Bytes fromValue(const Value& value) { return as<Bytes>(value, "bytes"); }
};

template <typename T>
struct Conversion<std::optional<T>> {
  static Value toValue(const std::optional<T>& object) {
    return object ? scripted::toValue(*object) : Value{};
  }
  static std::optional<T> fromValue(const Value& value) {
    if (isAbsent(value)) return std::nullopt;
    return scripted::fromValue<T>(value);
  }
};

// Shared objects of the interface show only as there or not.
template <typename T>
struct Conversion<std::shared_ptr<T>> {
  static Value toValue(const std::shared_ptr<T>& object) { return {object != nullptr}; }
};

// The stream key is the one pair whose members have names.
template <typename First, typename Second>
requires(!std::same_as<std::pair<First, Second>,
                       StreamKey>) struct Conversion<std::pair<First, Second>> {
  static Value toValue(const std::pair<First, Second>& pair) {
    return {Array{scripted::toValue(pair.first), scripted::toValue(pair.second)}};
  }
  static std::pair<First, Second> fromValue(const Value& value) {
    const auto& array = as<Array>(value, "an array");
    if (array.size() != 2) throw std::invalid_argument("expected two elements");
    return {scripted::fromValue<First>(array[0]), scripted::fromValue<Second>(array[1])};
  }
};

template <typename T>
concept Container = requires(T container, typename T::value_type element) {
  container.insert(container.end(), element);
}
&&!std::same_as<T, std::string> && !std::same_as<T, Bytes>;

// A map's elements are pairs.
template <typename T>
struct ElementOf {
  using Type = typename T::value_type;
};
template <typename Key, typename Mapped>
struct ElementOf<std::map<Key, Mapped>> {
  using Type = std::pair<Key, Mapped>;
};

template <Container T>
struct Conversion<T> {
  using Element = typename ElementOf<T>::Type;

  static Value toValue(const T& container) {
    Array array;
    for (const auto& element : container) array.push_back(scripted::toValue<Element>(element));
    return {std::move(array)};
  }
  static T fromValue(const Value& value) {
    T container;
    for (const Value& element : as<Array>(value, "an array")) {
      container.insert(container.end(), scripted::fromValue<Element>(element));
    }
    return container;
  }
};

// Sorted, as the set itself has no order that a test could expect.
template <>
struct Conversion<std::unordered_set<std::string>> {
  using Set = std::unordered_set<std::string>;
  static Value toValue(const Set& set) {
    return scripted::toValue(std::set<std::string>(set.begin(), set.end()));
  }
  static Set fromValue(const Value& value) {
    const auto texts = scripted::fromValue<std::set<std::string>>(value);
    return {texts.begin(), texts.end()};
  }
};

template <typename T>
concept HasFields = requires(T& record) {
  Fields<T>::list(record, [](const char*, auto&) {});
};

template <HasFields T>
struct Conversion<T> {
  static Value toValue(const T& object) {
    Record fields;
    Fields<T>::list(object, [&](const char* name, const auto& member) {
      fields.push_back({name, scripted::toValue(member)});
    });
    return {std::move(fields)};
  }

  // Fields that are not given keep their default; a field that the record does not have is refused.
  static T fromValue(const Value& value) {
    const auto& given = as<Record>(value, "an object");
    std::size_t taken = 0;
    T object;
    Fields<T>::list(object, [&]<typename Member>(const char* name, Member& member) {
      const auto field =
          std::find_if(given.begin(), given.end(), [&](const Field& f) { return f.name == name; });
      if (field == given.end()) return;
      ++taken;
      if (isAbsent(field->value)) return;
      try {
        member = scripted::fromValue<Member>(field->value);
      } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string(name) + ": " + error.what());
      }
    });
    if (taken != given.size()) throw std::invalid_argument(unknownField(given, object));
    return object;
  }

 private:
  static std::string unknownField(const Record& given, T& object) {
    std::set<std::string> known;
    Fields<T>::list(object, [&](const char* name, auto&) { known.insert(name); });
    for (const Field& field : given) {
      if (!known.contains(field.name)) return "there is no field " + field.name;
    }
    return "a field is given twice";
  }
};

// ---- Calling by name

template <typename... Parameters>
using Arguments = std::tuple<std::decay_t<Parameters>...>;

// The arguments of a call, each converted to its parameter's type.
template <typename... Parameters>
Arguments<Parameters...> argumentsFrom(const Array& values) {
  if (values.size() != sizeof...(Parameters)) {
    throw std::invalid_argument("expected " + std::to_string(sizeof...(Parameters)) +
                                " arguments, got " + std::to_string(values.size()));
  }
  return [&]<std::size_t... Position>(std::index_sequence<Position...>) {
    return Arguments<Parameters...>(fromValue<std::decay_t<Parameters>>(values[Position])...);
  }
  (std::index_sequence_for<Parameters...>());
}

// A method of Object that is called with values and answers with one.
template <typename Object>
using Method = std::function<Value(Object&, const Array&)>;

template <typename Object, typename Result, typename... Parameters>
Method<Object> byValues(Result (Object::*method)(Parameters...)) {
  return [method](Object& object, const Array& values) -> Value {
    auto arguments = argumentsFrom<Parameters...>(values);
    return std::apply(
        [&](auto&... argument) -> Value {
          if constexpr (std::is_void_v<Result>) {
            (object.*method)(argument...);
            return {};
          } else {
            return toValue<Result>((object.*method)(argument...));
          }
        },
        arguments);
  };
}

}  // namespace scripted

#endif  // TEST_ENGINE_CONVERSION_H_
