// TesselWrapper: the engine's configuration data and its registered events.

#include <stdexcept>

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/values.h"
#include "addon/wrapper/tessel_wrapper.h"

namespace wrapper {
namespace {

std::shared_ptr<ConfigData> configDataOf(TSLM::TSLMManager& engine) {
  auto configData = engine.GetConfigDataPtr();
  if (!configData) throw std::runtime_error("The engine has no configuration data");
  return configData;
}

}  // namespace

Napi::Value TesselWrapper::getConfigData(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const std::shared_ptr<ConfigData> configData = configDataOf(*manager_);
  const Napi::Object result = Napi::Object::New(env);
  napi::setProperty(result, "isVesperCapable",
                    napi::toJavascript(env, configData->isVesperCapable()));
  napi::setProperty(result, "maxVOQualityIndex",
                    napi::toJavascript(env, configData->maxVOQualityIndex()));
  return result;
}

void TesselWrapper::updateConfigData(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, napi::onlyObject(info), "ConfigDataHelper");
  const std::string text = helper.getAsString("configData");
  configDataOf(*manager_)->update(text);
}

void TesselWrapper::registerEvent(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, napi::onlyObject(info), "RegisterEventParams");
  const std::string eventName = helper.getAsString("eventName");
  // A negative number is taken as its unsigned counterpart.
  const auto expires = static_cast<unsigned int>(helper.getAsInt("expires"));
  const std::string mimeType = helper.getAsString("mimeType");
  const std::string mimeSubType = helper.getAsString("mimeSubType");
  manager_->RegisterEvent(eventName, expires, mimeType, mimeSubType);
}

void TesselWrapper::unregisterEvent(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, napi::onlyObject(info),
                                              "UnregisterEventParams");
  manager_->UnregisterEvent(helper.getAsString("eventName"));
}

}  // namespace wrapper
