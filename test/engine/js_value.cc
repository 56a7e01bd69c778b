#include "test/engine/js_value.h"

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace scripted {
namespace {

constexpr std::int64_t kMaxSafeInteger = (std::int64_t{1} << 53) - 1;

Value fromNumber(double number) {
  const bool isInteger = std::trunc(number) == number && std::abs(number) <= kMaxSafeInteger;
  if (!isInteger) return {number};
  return {static_cast<std::int64_t>(number)};
}

Value fromBigInt(Napi::BigInt number) {
  bool lossless = false;
  const std::int64_t integer = number.Int64Value(&lossless);
  if (lossless) return {integer};
  const std::uint64_t large = number.Uint64Value(&lossless);
  if (!lossless) throw std::invalid_argument("the BigInt has more than 64 bits");
  return {large};
}

Bytes fromTypedArray(Napi::TypedArray array) {
  const auto* start = static_cast<const std::uint8_t*>(array.ArrayBuffer().Data());
  if (array.ByteLength() == 0) return {};
  start += array.ByteOffset();
  return {start, start + array.ByteLength()};
}

Array fromArray(Napi::Array array) {
  Array elements;
  for (std::uint32_t i = 0; i < array.Length(); ++i) elements.push_back(fromJs(array.Get(i)));
  return elements;
}

Record fromObject(Napi::Object object) {
  Record fields;
  const Napi::Array names = object.GetPropertyNames();
  for (std::uint32_t i = 0; i < names.Length(); ++i) {
    const Napi::Value name = names.Get(i);
    fields.push_back({name.ToString().Utf8Value(), fromJs(object.Get(name))});
  }
  return fields;
}

// One overload for each alternative of a value.
class ToJs {
 public:
  explicit ToJs(Napi::Env env) : env_(env) {}

  Napi::Value operator()(std::monostate) const { return env_.Undefined(); }
  Napi::Value operator()(bool flag) const { return Napi::Boolean::New(env_, flag); }
  Napi::Value operator()(std::int64_t integer) const {
    if (std::abs(integer) > kMaxSafeInteger) return Napi::BigInt::New(env_, integer);
    return Napi::Number::New(env_, static_cast<double>(integer));
  }
  Napi::Value operator()(std::uint64_t integer) const { return Napi::BigInt::New(env_, integer); }
  Napi::Value operator()(double number) const { return Napi::Number::New(env_, number); }
  Napi::Value operator()(const std::string& text) const { return Napi::String::New(env_, text); }
  Napi::Value operator()(const Bytes& bytes) const {
    return Napi::Buffer<std::uint8_t>::Copy(env_, bytes.data(), bytes.size());
  }
  Napi::Value operator()(const Array& elements) const {
    auto array = Napi::Array::New(env_, elements.size());
    for (std::uint32_t i = 0; i < elements.size(); ++i) array.Set(i, toJs(env_, elements[i]));
    return array;
  }
  Napi::Value operator()(const Record& fields) const {
    auto object = Napi::Object::New(env_);
    for (const Field& field : fields) object.Set(field.name, toJs(env_, field.value));
    return object;
  }

 private:
  Napi::Env env_;
};

}  // namespace

Value fromJs(Napi::Value value) {
  if (value.IsUndefined() || value.IsNull()) return {};
  if (value.IsBoolean()) return {value.As<Napi::Boolean>().Value()};
  if (value.IsNumber()) return fromNumber(value.As<Napi::Number>().DoubleValue());
  if (value.IsBigInt()) return fromBigInt(value.As<Napi::BigInt>());
  if (value.IsString()) return {value.As<Napi::String>().Utf8Value()};
  if (value.IsTypedArray()) return {fromTypedArray(value.As<Napi::TypedArray>())};
  if (value.IsArray()) return {fromArray(value.As<Napi::Array>())};
  if (value.IsObject() && !value.IsFunction()) return {fromObject(value.As<Napi::Object>())};
  throw std::invalid_argument("a value of this type cannot be sent to the engine");
}

Napi::Value toJs(Napi::Env env, const Value& value) { return std::visit(ToJs(env), value.data); }

}  // namespace scripted
