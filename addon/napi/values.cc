#include "addon/napi/values.h"

#include "addon/napi/status.h"

namespace napi {

bool isObject(const Napi::Value& value) { return value.IsObject() || value.IsFunction(); }

bool toBool(const Napi::Value& value) {
  bool result = false;
  checkStatus(value.Env(), napi_get_value_bool(value.Env(), value, &result));
  return result;
}

std::int32_t toInt32(const Napi::Value& value) {
  std::int32_t result = 0;
  checkStatus(value.Env(), napi_get_value_int32(value.Env(), value, &result));
  return result;
}

std::int64_t toInt64(const Napi::Value& value) {
  std::int64_t result = 0;
  checkStatus(value.Env(), napi_get_value_int64(value.Env(), value, &result));
  return result;
}

std::string toUtf8(const Napi::Value& value) {
  std::size_t size = 0;
  checkStatus(value.Env(), napi_get_value_string_utf8(value.Env(), value, nullptr, 0, &size));
  std::string text(size, '\0');
  // Node-API writes a terminating NUL, for which std::string has room behind its last character.
  checkStatus(value.Env(),
              napi_get_value_string_utf8(value.Env(), value, text.data(), size + 1, nullptr));
  return text;
}

Napi::String toJavascript(Napi::Env env, std::string_view utf8) {
  napi_value result = nullptr;
  checkStatus(env, napi_create_string_utf8(env, utf8.data(), utf8.size(), &result));
  return {env, result};
}

Napi::Number toJavascript(Napi::Env env, double number) {
  napi_value result = nullptr;
  checkStatus(env, napi_create_double(env, number, &result));
  return {env, result};
}

Napi::Object makeObject(Napi::Env env,
                        const std::vector<std::pair<const char*, Napi::Value>>& properties) {
  const Napi::Object object = Napi::Object::New(env);
  for (const auto& [name, value] : properties) setProperty(object, name, value);
  return object;
}

void setElement(Napi::Array array, std::uint32_t index, Napi::Value value) {
  checkStatus(array.Env(), napi_set_element(array.Env(), array, index, value));
}

void setProperty(Napi::Object object, const char* name, Napi::Value value) {
  checkStatus(object.Env(), napi_set_named_property(object.Env(), object, name, value));
}

void forEachElement(const Napi::Value& array, const std::function<void(Napi::Value)>& use) {
  const Napi::Env env = array.Env();
  for (std::uint32_t index = 0;; ++index) {
    std::uint32_t length = 0;
    checkStatus(env, napi_get_array_length(env, array, &length));
    if (index >= length) return;
    const Napi::HandleScope scope(env);
    napi_value element = nullptr;
    checkStatus(env, napi_get_element(env, array, index, &element));
    use(Napi::Value(env, element));
  }
}

Napi::ObjectReference weakReference(Napi::Object object) {
  napi_ref reference = nullptr;
  checkStatus(object.Env(), napi_create_reference(object.Env(), object, 0, &reference));
  return {object.Env(), reference};
}

}  // namespace napi
