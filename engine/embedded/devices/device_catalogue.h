// Which devices there are.

#ifndef ENGINE_EMBEDDED_DEVICES_DEVICE_CATALOGUE_H_
#define ENGINE_EMBEDDED_DEVICES_DEVICE_CATALOGUE_H_

#include <array>
#include <string>

#include "tesselclient/types.h"

namespace embedded {

// Three of each type, numbered from 0: "camera-0" to "camera-2", "microphone-0" and so on, and
// "speaker-0" and so on.
constexpr int kDevicesOfEachType = 3;
constexpr std::array<DeviceType, 3> kDeviceTypes = {DeviceType::kVideo, DeviceType::kAudioIn,
                                                    DeviceType::kAudioOut};

std::string deviceId(DeviceType type, int number);

// Whether a device has this identifier, plugged in or not.
bool isDevice(const std::string& id);

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_DEVICES_DEVICE_CATALOGUE_H_
