#include "addon/napi/arguments.h"

#include <string>

#include "addon/napi/status.h"
#include "addon/napi/values.h"

namespace napi {
namespace {

void require(bool accepted, const Napi::CallbackInfo& info, std::uint32_t index,
             const char* typeWord) {
  if (accepted) return;
  throw Napi::TypeError::New(info.Env(), "Wrong argument type for argument " +
                                             std::to_string(index) + ", expected " + typeWord);
}

}  // namespace

void napiCheckArgLength(const Napi::CallbackInfo& info, std::uint32_t count) {
  if (info.Length() >= count) return;
  throw Napi::TypeError::New(info.Env(),
                             "Wrong number of arguments, expected " + std::to_string(count));
}

Napi::Object napiGetArgAsObject(const Napi::CallbackInfo& info, std::uint32_t index) {
  const Napi::Value value = info[index];
  require(isObject(value), info, index, "Object");
  return value.As<Napi::Object>();
}

bool napiGetArgAsBoolean(const Napi::CallbackInfo& info, std::uint32_t index) {
  const Napi::Value value = info[index];
  require(value.IsBoolean(), info, index, "Boolean");
  return toBool(value);
}

std::string napiGetArgAsString(const Napi::CallbackInfo& info, std::uint32_t index) {
  const Napi::Value value = info[index];
  require(value.IsString(), info, index, "String");
  return toUtf8(value);
}

std::int64_t napiGetArgAsInt64(const Napi::CallbackInfo& info, std::uint32_t index) {
  const Napi::Value value = info[index];
  require(value.IsNumber(), info, index, "Number");
  return toInt64(value);
}

Napi::Object onlyObject(const Napi::CallbackInfo& info) {
  napiCheckArgLength(info, 1);
  return napiGetArgAsObject(info, 0);
}

bool onlyBoolean(const Napi::CallbackInfo& info) {
  napiCheckArgLength(info, 1);
  return napiGetArgAsBoolean(info, 0);
}

}  // namespace napi
