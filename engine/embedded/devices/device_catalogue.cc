#include "engine/embedded/devices/device_catalogue.h"

namespace embedded {
namespace {

const char* nameOf(DeviceType type) {
  switch (type) {
    case DeviceType::kVideo:
      return "camera-";
    case DeviceType::kAudioIn:
      return "microphone-";
    case DeviceType::kAudioOut:
      break;
  }
  return "speaker-";
}

}  // namespace

std::string deviceId(DeviceType type, int number) { return nameOf(type) + std::to_string(number); }

bool isDevice(const std::string& id) {
  for (const DeviceType type : kDeviceTypes) {
    for (int number = 0; number < kDevicesOfEachType; ++number) {
      if (id == deviceId(type, number)) return true;
    }
  }
  return false;
}

}  // namespace embedded
