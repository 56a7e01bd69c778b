#include "engine/embedded/devices/devices.h"

#include <algorithm>
#include <utility>

#include "engine/embedded/devices/device_catalogue.h"

namespace embedded {
namespace {

// The numbers below this.
constexpr int kPluggedAtFirst = 2;

}  // namespace

Devices::Devices(support::Notifier& notifier, std::shared_ptr<const support::Log> log)
    : notifier_(notifier), log_(std::move(log)) {
  for (const DeviceType type : kDeviceTypes) selected_[type] = firstPlugged(type);
}

std::vector<Devices::Device> Devices::initialDevices() {
  std::vector<Device> devices;
  for (const DeviceType type : kDeviceTypes) {
    for (int number = 0; number < kDevicesOfEachType; ++number) {
      devices.push_back({deviceId(type, number), type, number, number < kPluggedAtFirst});
    }
  }
  return devices;
}

void Devices::setPlugged(const std::string& id, bool isPlugged) {
  const auto device = std::find_if(devices_.begin(), devices_.end(),
                                   [&id](const Device& candidate) { return candidate.id == id; });
  if (device == devices_.end() || device->isPlugged == isPlugged) return;
  device->isPlugged = isPlugged;
  log_->write(id + (isPlugged ? " plugged in" : " unplugged"));
  reselect(device->type);
  notifier_.notify(&INotifyCallback::NotifyDeviceChange, id, device->type);
}

void Devices::restore() {
  for (const Device& device : initialDevices()) setPlugged(device.id, device.isPlugged);
}

bool Devices::select(DeviceType type, const std::string& id) {
  for (const Device& device : devices_) {
    if (device.type != type || !device.isPlugged || (!id.empty() && device.id != id)) continue;
    selected_[type] = &device;
    log_->write("selected " + device.id);
    return true;
  }
  log_->write("there is no device " + id);
  return false;
}

std::optional<int> Devices::selected(DeviceType type) const {
  const Device* const device = selected_.at(type);
  return device == nullptr ? std::nullopt : std::optional(device->number);
}

const Devices::Device* Devices::firstPlugged(DeviceType type) const {
  for (const Device& device : devices_) {
    if (device.type == type && device.isPlugged) return &device;
  }
  return nullptr;
}

void Devices::reselect(DeviceType type) {
  const Device*& device = selected_[type];
  if (device == nullptr || !device->isPlugged) device = firstPlugged(type);
}

}  // namespace embedded
