// Cameras, microphones and speakers that exist in name only.

#ifndef ENGINE_EMBEDDED_DEVICES_DEVICES_H_
#define ENGINE_EMBEDDED_DEVICES_DEVICES_H_

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "tesselclient/types.h"

namespace embedded {

// The devices of the catalogue and which of them are plugged in: those numbered 2 are not at first.
// One plugged-in device of each type is selected, if there is one. Belongs to the engine's thread.
class Devices {
 public:
  Devices(support::Notifier& notifier, std::shared_ptr<const support::Log> log);
  Devices(const Devices&) = delete;
  Devices& operator=(const Devices&) = delete;

  // Notified when it changes anything. Where the selected device is unplugged, the first one of its
  // type takes its place.
  void setPlugged(const std::string& id, bool isPlugged);
  // Plugs and unplugs as it was at first.
  void restore();

  // An empty identifier means the first device. What is not plugged in cannot be selected: that is
  // logged and changes nothing.
  bool select(DeviceType type, const std::string& id);
  // The number of the selected device; nothing when none of the type is plugged in.
  std::optional<int> selected(DeviceType type) const;

 private:
  struct Device {
    std::string id;
    DeviceType type;
    int number;
    bool isPlugged;
  };

  static std::vector<Device> initialDevices();
  const Device* firstPlugged(DeviceType type) const;
  void reselect(DeviceType type);

  support::Notifier& notifier_;
  const std::shared_ptr<const support::Log> log_;
  std::vector<Device> devices_ = initialDevices();
  std::map<DeviceType, const Device*> selected_;  // null when there is none
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_DEVICES_DEVICES_H_
