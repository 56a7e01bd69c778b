// TesselWrapper: what is sent and received, and which devices are used.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/wrapper/tessel_wrapper.h"
#include "base/diagnostic_line.h"

namespace wrapper {

namespace {

Napi::Object onlyObject(const Napi::CallbackInfo& info) {
  napi::napiCheckArgLength(info, 1);
  return napi::napiGetArgAsObject(info, 0);
}

bool onlyFlag(const Napi::CallbackInfo& info) {
  napi::napiCheckArgLength(info, 1);
  return napi::napiGetArgAsBoolean(info, 0);
}

// A volume arrives as an integer and is taken as unsigned, so -1 becomes 4294967296 as a float.
float readVolume(const napi::NapiObjectPropertyHelper& helper, const char* name) {
  return static_cast<float>(static_cast<std::uint32_t>(helper.getAsInt(name)));
}

}  // namespace

void TesselWrapper::unpackMediaStreamState(const Napi::CallbackInfo& info, Napi::Object object,
                                           tsl::MediaStreamState& state) {
  const napi::NapiObjectPropertyHelper helper(info, object, "MediaStreamState");
  state.contentStreamEnabled = helper.getAsBoolean("contentStreamEnabled");
  state.incomingAudioEnabled = helper.getAsBoolean("incomingAudioEnabled");
  state.incomingVideoEnabled = helper.getAsBoolean("incomingVideoEnabled");
  state.outgoingAudioMuted = helper.getAsBoolean("outgoingAudioMuted");
  state.outgoingVideoMuted = helper.getAsBoolean("outgoingVideoMuted");
}

void TesselWrapper::unpackAudioInDevice(const Napi::CallbackInfo& info, Napi::Object object,
                                        tsl::AudioInDevice& device) {
  const napi::NapiObjectPropertyHelper helper(info, object, "AudioInDevice");
  device.id = helper.getAsString("audioInId");
  device.name = helper.getAsString("audioInName");
  device.sourceName = helper.getAsString("audioInSourceName");
}

void TesselWrapper::unpackAudioOutDevice(const Napi::CallbackInfo& info, Napi::Object object,
                                         tsl::AudioOutDevice& device) {
  const napi::NapiObjectPropertyHelper helper(info, object, "AudioOutDevice");
  device.id = helper.getAsString("audioOutId");
  device.name = helper.getAsString("audioOutName");
  device.sourceName = helper.getAsString("audioOutSourceName");
}

void TesselWrapper::unpackVideoDevice(const Napi::CallbackInfo& info, Napi::Object object,
                                      tsl::VideoDevice& device) {
  const napi::NapiObjectPropertyHelper helper(info, object, "VideoDevice");
  device.id = helper.getAsString("videoDeviceId");
  device.name = helper.getAsString("videoDeviceName");
  if (!helper.has("capability")) return;
  // The doubled word is the name that applications see in error texts.
  const napi::NapiObjectPropertyHelper capability(info, helper.getAsObject("capability"),
                                                  "CaptureCaptureCapability");
  if (capability.has("width")) device.width = capability.getAsInt("width");
  if (capability.has("height")) device.height = capability.getAsInt("height");
  if (capability.has("maxFPS")) device.maxFps = capability.getAsInt("maxFPS");
}

void TesselWrapper::updateMediaStreamState(const Napi::CallbackInfo& info) {
  tsl::MediaStreamState state;
  unpackMediaStreamState(info, onlyObject(info), state);
  manager_->UpdateMediaStreamState(state);
}

void TesselWrapper::muteLocalVideo(const Napi::CallbackInfo& info) {
  manager_->MuteLocalVideo(onlyFlag(info));
}

void TesselWrapper::muteLocalAudio(const Napi::CallbackInfo& info) {
  manager_->MuteLocalAudio(onlyFlag(info));
}

void TesselWrapper::setRemoteAudioMute(const Napi::CallbackInfo& info) {
  manager_->SetRemoteAudioMute(onlyFlag(info));
}

void TesselWrapper::enableCameraCapture(const Napi::CallbackInfo& info) {
  constexpr StreamKey kLocalStream = {TSLM_STREAM_LOCAL, 0};
  const bool enable = onlyFlag(info);
  manager_->EnableCameraCapture(enable);
  if (enable) {
    streamManager_->enableFrameCapture(kLocalStream);
  } else {
    streamManager_->disableFrameCapture(kLocalStream);
  }
}

void TesselWrapper::setAudioDebug(const Napi::CallbackInfo& info) {
  manager_->SetAudioDebug(onlyFlag(info));
}

void TesselWrapper::setAudioInDevice(const Napi::CallbackInfo& info) {
  tsl::AudioInDevice device;
  unpackAudioInDevice(info, onlyObject(info), device);
  manager_->SetAudioInDevice(device);
}

void TesselWrapper::setAudioOutDevice(const Napi::CallbackInfo& info) {
  tsl::AudioOutDevice device;
  unpackAudioOutDevice(info, onlyObject(info), device);
  manager_->SetAudioOutDevice(device);
}

void TesselWrapper::setVideoDevice(const Napi::CallbackInfo& info) {
  tsl::VideoDevice device;
  unpackVideoDevice(info, onlyObject(info), device);
  manager_->SetVideoDevice(device);
}

void TesselWrapper::selectDevices(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, onlyObject(info), "DeviceSelectionParams");
  tsl::DeviceSelectionParams params;
  unpackVideoDevice(info, helper.getAsObject("videoDevice"), params.videoDevice);
  unpackAudioInDevice(info, helper.getAsObject("audioInDevice"), params.audioInDevice);
  unpackAudioOutDevice(info, helper.getAsObject("audioOutDevice"), params.audioOutDevice);
  base::DiagnosticLine("TesselWrapper::selectDevices: called, video device: ")
      .text(params.videoDevice.id.c_str())
      .text(", audio in device: ")
      .text(params.audioInDevice.id.c_str())
      .text(", audio out device: ")
      .text(params.audioOutDevice.id.c_str());
  manager_->SelectDevices(params);
}

void TesselWrapper::sendAudioDeviceStats(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, onlyObject(info), "AudioDeviceStats");
  tsl::AudioDeviceStats stats;
  stats.isSpeakerMuted = helper.getAsBoolean("isSpeakerMuted");
  stats.speakerVolume = readVolume(helper, "speakerVolume");
  stats.isMicMuted = helper.getAsBoolean("isMicMuted");
  stats.micVolume = readVolume(helper, "micVolume");
  manager_->SendAudioDeviceStats(stats);
}

}  // namespace wrapper
