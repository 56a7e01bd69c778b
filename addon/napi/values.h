// Conversions between JavaScript values and C++ ones. A value of the wrong type is a failure of
// Node-API and throws a plain Napi::Error with its message; callers with a better error text test
// the type first.

#ifndef ADDON_NAPI_VALUES_H_
#define ADDON_NAPI_VALUES_H_

#include <napi.h>

#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace napi {

// True for objects, arrays and functions; false for null.
bool isObject(const Napi::Value& value);

bool toBool(const Napi::Value& value);
// Signed 32 bits: the fraction is dropped, NaN and the infinities give 0, a value out of range
// keeps its low 32 bits.
std::int32_t toInt32(const Napi::Value& value);
// Signed 64 bits: the fraction is dropped, NaN and the infinities give 0, a value out of range
// saturates.
std::int64_t toInt64(const Napi::Value& value);
std::string toUtf8(const Napi::Value& value);

Napi::String toJavascript(Napi::Env env, std::string_view utf8);
Napi::Number toJavascript(Napi::Env env, double number);
// A template, so that no pointer turns into a boolean.
Napi::Boolean toJavascript(Napi::Env env, std::same_as<bool> auto boolean) {
  return Napi::Boolean::New(env, boolean);
}

// An object with these properties, set in this order.
Napi::Object makeObject(Napi::Env env,
                        const std::vector<std::pair<const char*, Napi::Value>>& properties);

void setProperty(Napi::Object object, const char* name, Napi::Value value);
void setElement(Napi::Array array, std::uint32_t index, Napi::Value value);

// An array of what `make` gives for each of `items`, in their order.
Napi::Array makeArray(Napi::Env env, const auto& items, const auto& make) {
  const Napi::Array array = Napi::Array::New(env, items.size());
  std::uint32_t index = 0;
  for (const auto& item : items) {
    const Napi::HandleScope scope(env);
    setElement(array, index++, make(item));
  }
  return array;
}

// Calls `use` with each element in order. The length is read again before every element, so an
// array that a getter changes on the way is followed. Each element has a handle scope of its own.
void forEachElement(const Napi::Value& array, const std::function<void(Napi::Value)>& use);

// A reference that does not keep `object` alive.
Napi::ObjectReference weakReference(Napi::Object object);

}  // namespace napi

#endif  // ADDON_NAPI_VALUES_H_
