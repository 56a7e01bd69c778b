// Checks of a JavaScript call's arguments, with fixed error texts. Positions count from 0; an
// argument that was not passed reads as undefined. All run on the JavaScript thread and throw a
// Napi::TypeError for what the caller passed, a plain Napi::Error where Node-API fails.

#ifndef ADDON_NAPI_ARGUMENTS_H_
#define ADDON_NAPI_ARGUMENTS_H_

#include <napi.h>

#include <cstdint>

namespace napi {

// "Wrong number of arguments, expected <count>" when fewer than `count` were passed.
void napiCheckArgLength(const Napi::CallbackInfo& info, std::uint32_t count);

// "Wrong argument type for argument <index>, expected Object" unless the argument is an object, an
// array or a function.
Napi::Object napiGetArgAsObject(const Napi::CallbackInfo& info, std::uint32_t index);

// "Wrong argument type for argument <index>, expected Boolean" unless it is a boolean.
bool napiGetArgAsBoolean(const Napi::CallbackInfo& info, std::uint32_t index);

// "Wrong argument type for argument <index>, expected String" unless it is a string. The result is
// UTF-8.
std::string napiGetArgAsString(const Napi::CallbackInfo& info, std::uint32_t index);

// "Wrong argument type for argument <index>, expected Number" unless it is a number. Converts as
// Node-API does: the fraction dropped, NaN and the infinities 0, too large values saturated.
std::int64_t napiGetArgAsInt64(const Napi::CallbackInfo& info, std::uint32_t index);

// Argument 0 of a method that takes one object, or one boolean: checks the count, then the type.
// What is passed beyond it is ignored.
Napi::Object onlyObject(const Napi::CallbackInfo& info);
bool onlyBoolean(const Napi::CallbackInfo& info);

}  // namespace napi

#endif  // ADDON_NAPI_ARGUMENTS_H_
