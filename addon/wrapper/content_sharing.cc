// TesselWrapper: sharing local content, its token, and the monitors to choose from.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/status.h"
#include "addon/napi/values.h"
#include "addon/wrapper/tessel_wrapper.h"

namespace wrapper {
namespace {

tsl::ShareType shareTypeOf(Napi::Env env, const std::string& type) {
  if (type == "screen") return tsl::ShareType::kScreen;
  if (type == "application") return tsl::ShareType::kApplication;
  if (type == "window") return tsl::ShareType::kWindow;
  throw Napi::TypeError::New(
      env, "Invalid value for type ShareType, expected screen|application|window");
}

}  // namespace

void TesselWrapper::startPresentation(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, napi::onlyObject(info), "ContentShareParams");
  tsl::ContentShareParams params;
  params.type = shareTypeOf(info.Env(), helper.getAsString("type"));
  if (helper.has("screenId")) params.screenId = helper.getAsInt("screenId");
  if (helper.has("applicationId")) params.applicationId = helper.getAsInt("applicationId");
  if (helper.has("windowId")) params.windowId = helper.getAsInt("windowId");
  manager_->StartPresentation(params);
}

void TesselWrapper::stopPresentation(const Napi::CallbackInfo&) { manager_->StopPresentation(); }

void TesselWrapper::requestContentShareToken(const Napi::CallbackInfo&) {
  manager_->RequestContentShareToken();
}

void TesselWrapper::releaseContentShareToken(const Napi::CallbackInfo&) {
  manager_->ReleaseContentShareToken();
}

Napi::Value TesselWrapper::getScreenMonitorDetails(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  const std::vector<tsl::ScreenMonitor> monitors = manager_->GetScreenMonitorDetails();
  return napi::makeArray(env, monitors, [env](const tsl::ScreenMonitor& monitor) {
    return napi::makeObject(env, {{"x", napi::toJavascript(env, monitor.x)},
                                  {"y", napi::toJavascript(env, monitor.y)},
                                  {"width", napi::toJavascript(env, monitor.width)},
                                  {"height", napi::toJavascript(env, monitor.height)}});
  });
}

}  // namespace wrapper
