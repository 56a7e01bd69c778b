#include "addon/napi/object_property_helper.h"

#include <utility>

#include "addon/napi/status.h"
#include "addon/napi/values.h"

namespace napi {

NapiObjectPropertyHelper::NapiObjectPropertyHelper(const Napi::CallbackInfo& info,
                                                   Napi::Value object, std::string objectName)
    : env_(info.Env()), object_(object), objectName_(std::move(objectName)) {}

bool NapiObjectPropertyHelper::has(const std::string& name) const {
  return has(toJavascript(env_, name));
}

bool NapiObjectPropertyHelper::has(Napi::String key) const {
  bool result = false;
  checkStatus(env_, napi_has_property(env_, object_, key, &result));
  return result;
}

Napi::Value NapiObjectPropertyHelper::get(Napi::String key) const {
  napi_value result = nullptr;
  checkStatus(env_, napi_get_property(env_, object_, key, &result));
  return {env_, result};
}

Napi::Value NapiObjectPropertyHelper::getChecked(const std::string& name,
                                                 bool (*isWanted)(const Napi::Value&),
                                                 const char* typeWord) const {
  const Napi::String key = toJavascript(env_, name);
  if (!has(key)) {
    throw Napi::TypeError::New(env_, "Missing property " + name + " on object " + objectName_);
  }
  if (!isWanted(get(key))) {
    throw Napi::TypeError::New(env_, "Wrong type for property " + name + " on object " +
                                         objectName_ + ", expected " + typeWord);
  }
  return get(key);
}

std::string NapiObjectPropertyHelper::getAsString(const std::string& name) const {
  return toUtf8(getChecked(
      name, [](const Napi::Value& value) { return value.IsString(); }, "String"));
}

bool NapiObjectPropertyHelper::getAsBoolean(const std::string& name) const {
  return toBool(getChecked(
      name, [](const Napi::Value& value) { return value.IsBoolean(); }, "Boolean"));
}

Napi::Object NapiObjectPropertyHelper::getAsObject(const std::string& name) const {
  return getChecked(name, isObject, "Object").As<Napi::Object>();
}

Napi::Array NapiObjectPropertyHelper::getAsArray(const std::string& name) const {
  return getChecked(
             name, [](const Napi::Value& value) { return value.IsArray(); }, "Array")
      .As<Napi::Array>();
}

std::int32_t NapiObjectPropertyHelper::getAsInt(const std::string& name) const {
  return toInt32(getChecked(
      name, [](const Napi::Value& value) { return value.IsNumber(); }, "Number"));
}

}  // namespace napi
