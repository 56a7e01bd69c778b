// TesselWrapper: what is sent and received, and which devices are used.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/record_reader.h"
#include "addon/wrapper/media_stream_state.h"
#include "addon/wrapper/tessel_wrapper.h"
#include "base/diagnostic_line.h"

namespace wrapper {
namespace {

// A volume arrives as an integer and is taken as unsigned, so -1 becomes 4294967296 as a float.
float readVolume(const napi::NapiObjectPropertyHelper& helper, const char* name) {
  return static_cast<float>(static_cast<std::uint32_t>(helper.getAsInt(name)));
}

// The names of an audio device's properties begin with `kind`.
template <typename Device>
Device readAudioDevice(const Napi::CallbackInfo& info, Napi::Value value, const char* objectName,
                       const std::string& kind) {
  return napi::RecordReader<Device>(info, value, objectName)
      .read(kind + "Id", &Device::id)
      .read(kind + "Name", &Device::name)
      .read(kind + "SourceName", &Device::sourceName)
      .take();
}

tsl::AudioInDevice readAudioInDevice(const Napi::CallbackInfo& info, Napi::Value value) {
  return readAudioDevice<tsl::AudioInDevice>(info, value, "AudioInDevice", "audioIn");
}

tsl::AudioOutDevice readAudioOutDevice(const Napi::CallbackInfo& info, Napi::Value value) {
  return readAudioDevice<tsl::AudioOutDevice>(info, value, "AudioOutDevice", "audioOut");
}

tsl::VideoDevice readVideoDevice(const Napi::CallbackInfo& info, Napi::Value value) {
  napi::RecordReader<tsl::VideoDevice> reader(info, value, "VideoDevice");
  reader.read("videoDeviceId", &tsl::VideoDevice::id)
      .read("videoDeviceName", &tsl::VideoDevice::name);
  tsl::VideoDevice device = reader.take();
  const auto& helper = reader.properties();
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
  using State = tsl::MediaStreamState;
  return napi::RecordReader<State>(info, value, "MediaStreamState")
      .read("contentStreamEnabled", &State::contentStreamEnabled)
      .read("incomingAudioEnabled", &State::incomingAudioEnabled)
      .read("incomingVideoEnabled", &State::incomingVideoEnabled)
      .read("outgoingAudioMuted", &State::outgoingAudioMuted)
      .read("outgoingVideoMuted", &State::outgoingVideoMuted)
      .take();
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
