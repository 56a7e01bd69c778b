// TesselWrapper: what is sent and received, and which devices are used.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/wrapper/media_stream_state.h"
#include "addon/wrapper/tessel_wrapper.h"
#include "base/diagnostic_line.h"

namespace wrapper {
namespace {

// A volume arrives as an integer and is taken as unsigned, so -1 becomes 4294967296 as a float.
float readVolume(const napi::NapiObjectPropertyHelper& helper, const char* name) {
  return static_cast<float>(static_cast<std::uint32_t>(helper.getAsInt(name)));
}

tsl::AudioInDevice readAudioInDevice(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "AudioInDevice");
  tsl::AudioInDevice device;
  device.id = helper.getAsString("audioInId");
  device.name = helper.getAsString("audioInName");
  device.sourceName = helper.getAsString("audioInSourceName");
  return device;
}

tsl::AudioOutDevice readAudioOutDevice(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "AudioOutDevice");
  tsl::AudioOutDevice device;
  device.id = helper.getAsString("audioOutId");
  device.name = helper.getAsString("audioOutName");
  device.sourceName = helper.getAsString("audioOutSourceName");
  return device;
}

tsl::VideoDevice readVideoDevice(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "VideoDevice");
  tsl::VideoDevice device;
  device.id = helper.getAsString("videoDeviceId");
  device.name = helper.getAsString("videoDeviceName");
  if (!helper.has("capability")) return device;
  // The name in error texts repeats the word on purpose.
  const napi::NapiObjectPropertyHelper capability(info, helper.getAsObject("capability"),
                                                  "CaptureCaptureCapability");
  if (capability.has("width")) device.width = capability.getAsInt("width");
  if (capability.has("height")) device.height = capability.getAsInt("height");
  if (capability.has("maxFPS")) device.maxFps = capability.getAsInt("maxFPS");
  return device;
}

tsl::DeviceSelectionParams readDeviceSelection(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "DeviceSelectionParams");
  tsl::DeviceSelectionParams params;
  params.videoDevice = readVideoDevice(info, helper.getAsObject("videoDevice"));
  params.audioInDevice = readAudioInDevice(info, helper.getAsObject("audioInDevice"));
  params.audioOutDevice = readAudioOutDevice(info, helper.getAsObject("audioOutDevice"));
  return params;
}

tsl::AudioDeviceStats readAudioDeviceStats(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "AudioDeviceStats");
  tsl::AudioDeviceStats stats;
  stats.isSpeakerMuted = helper.getAsBoolean("isSpeakerMuted");
  stats.speakerVolume = readVolume(helper, "speakerVolume");
  stats.isMicMuted = helper.getAsBoolean("isMicMuted");
  stats.micVolume = readVolume(helper, "micVolume");
  return stats;
}

}  // namespace

tsl::MediaStreamState readMediaStreamState(const Napi::CallbackInfo& info, Napi::Value value) {
  const napi::NapiObjectPropertyHelper helper(info, value, "MediaStreamState");
  tsl::MediaStreamState state;
  state.contentStreamEnabled = helper.getAsBoolean("contentStreamEnabled");
  state.incomingAudioEnabled = helper.getAsBoolean("incomingAudioEnabled");
  state.incomingVideoEnabled = helper.getAsBoolean("incomingVideoEnabled");
  state.outgoingAudioMuted = helper.getAsBoolean("outgoingAudioMuted");
  state.outgoingVideoMuted = helper.getAsBoolean("outgoingVideoMuted");
  return state;
}

void TesselWrapper::updateMediaStreamState(const Napi::CallbackInfo& info) {
  manager_->UpdateMediaStreamState(readMediaStreamState(info, napi::onlyObject(info)));
}

void TesselWrapper::muteLocalVideo(const Napi::CallbackInfo& info) {
  manager_->MuteLocalVideo(napi::onlyBoolean(info));
}

void TesselWrapper::muteLocalAudio(const Napi::CallbackInfo& info) {
  manager_->MuteLocalAudio(napi::onlyBoolean(info));
}

void TesselWrapper::setRemoteAudioMute(const Napi::CallbackInfo& info) {
  manager_->SetRemoteAudioMute(napi::onlyBoolean(info));
}

void TesselWrapper::enableCameraCapture(const Napi::CallbackInfo& info) {
  constexpr StreamKey kLocalStream = {TSLM_STREAM_LOCAL, 0};
  const bool enable = napi::onlyBoolean(info);
  manager_->EnableCameraCapture(enable);
  if (enable) {
    streamManager_->enableFrameCapture(kLocalStream);
  } else {
    streamManager_->disableFrameCapture(kLocalStream);
  }
}

void TesselWrapper::setAudioDebug(const Napi::CallbackInfo& info) {
  manager_->SetAudioDebug(napi::onlyBoolean(info));
}

void TesselWrapper::setAudioInDevice(const Napi::CallbackInfo& info) {
  manager_->SetAudioInDevice(readAudioInDevice(info, napi::onlyObject(info)));
}

void TesselWrapper::setAudioOutDevice(const Napi::CallbackInfo& info) {
  manager_->SetAudioOutDevice(readAudioOutDevice(info, napi::onlyObject(info)));
}

void TesselWrapper::setVideoDevice(const Napi::CallbackInfo& info) {
  manager_->SetVideoDevice(readVideoDevice(info, napi::onlyObject(info)));
}

void TesselWrapper::selectDevices(const Napi::CallbackInfo& info) {
  const tsl::DeviceSelectionParams params = readDeviceSelection(info, napi::onlyObject(info));
  base::DiagnosticLine("TesselWrapper::selectDevices: called, video device: ")
      .text(params.videoDevice.id.c_str())
      .text(", audio in device: ")
      .text(params.audioInDevice.id.c_str())
      .text(", audio out device: ")
      .text(params.audioOutDevice.id.c_str());
  manager_->SelectDevices(params);
}

void TesselWrapper::sendAudioDeviceStats(const Napi::CallbackInfo& info) {
  manager_->SendAudioDeviceStats(readAudioDeviceStats(info, napi::onlyObject(info)));
}

}  // namespace wrapper
