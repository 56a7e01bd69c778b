// The argument and property readers as JavaScript functions, for tests of the readers themselves.

#include <napi.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/values.h"

using napi::napiCheckArgLength;
using napi::napiGetArgAsBoolean;
using napi::napiGetArgAsInt64;
using napi::napiGetArgAsObject;
using napi::napiGetArgAsString;
using napi::NapiObjectPropertyHelper;

namespace {

// A reader of arguments takes its count or its position once, and gives the function to be called
// with the arguments: napiGetArgAsObject(1)(first, second) answers with `second`.
using ArgumentReader = std::function<Napi::Value(const Napi::CallbackInfo&, std::uint32_t)>;

void exportArgumentReader(Napi::Object exports, const char* name, ArgumentReader read) {
  const Napi::Env env = exports.Env();
  const auto bind = [read = std::move(read)](const Napi::CallbackInfo& info) {
    const auto number = info[0].As<Napi::Number>().Uint32Value();
    return Napi::Function::New(info.Env(), [read, number](const Napi::CallbackInfo& arguments) {
      return read(arguments, number);
    });
  };
  napi::setProperty(exports, name, Napi::Function::New(env, bind, name));
}

// A reader of properties is called with the object, the object's name and the property's name.
using PropertyReader =
    std::function<Napi::Value(const NapiObjectPropertyHelper&, Napi::Env, const std::string&)>;

void exportPropertyReader(Napi::Object exports, const char* name, PropertyReader read) {
  const auto call = [read = std::move(read)](const Napi::CallbackInfo& info) {
    const NapiObjectPropertyHelper helper(info, info[0], napi::toUtf8(info[1]));
    return read(helper, info.Env(), napi::toUtf8(info[2]));
  };
  napi::setProperty(exports, name, Napi::Function::New(exports.Env(), call, name));
}

Napi::Object exportReaders(Napi::Env, Napi::Object exports) {
  using napi::toJavascript;

  exportArgumentReader(exports, "napiCheckArgLength", [](const auto& info, auto count) {
    napiCheckArgLength(info, count);
    return info.Env().Undefined();
  });
  exportArgumentReader(exports, "napiGetArgAsObject", [](const auto& info, auto index) {
    return napiGetArgAsObject(info, index);
  });
  exportArgumentReader(exports, "napiGetArgAsBoolean", [](const auto& info, auto index) {
    return toJavascript(info.Env(), napiGetArgAsBoolean(info, index));
  });
  exportArgumentReader(exports, "napiGetArgAsString", [](const auto& info, auto index) {
    return toJavascript(info.Env(), napiGetArgAsString(info, index));
  });
  exportArgumentReader(exports, "napiGetArgAsInt64", [](const auto& info, auto index) {
    return toJavascript(info.Env(), static_cast<double>(napiGetArgAsInt64(info, index)));
  });

  exportPropertyReader(exports, "has", [](const auto& helper, auto env, const auto& name) {
    return toJavascript(env, helper.has(name));
  });
  exportPropertyReader(exports, "getAsString", [](const auto& helper, auto env, const auto& name) {
    return toJavascript(env, helper.getAsString(name));
  });
  exportPropertyReader(exports, "getAsBoolean", [](const auto& helper, auto env, const auto& name) {
    return toJavascript(env, helper.getAsBoolean(name));
  });
  exportPropertyReader(exports, "getAsObject", [](const auto& helper, auto, const auto& name) {
    return helper.getAsObject(name);
  });
  exportPropertyReader(exports, "getAsArray", [](const auto& helper, auto, const auto& name) {
    return helper.getAsArray(name);
  });
  exportPropertyReader(exports, "getAsInt", [](const auto& helper, auto env, const auto& name) {
    return toJavascript(env, helper.getAsInt(name));
  });
  return exports;
}

}  // namespace

NODE_API_MODULE(readers, exportReaders)
