// Cameras, microphones and speakers of this machine.

#ifndef ENGINE_WEBRTC_DEVICES_H_
#define ENGINE_WEBRTC_DEVICES_H_

#include <gst/gst.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/support/engine.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/inbox.h"
#include "tesselclient/types.h"

namespace webrtc {

// A device that is there. docs/webrtc-engine.md says what identifies it.
struct Device {
  std::string id;
  std::string name;
  bool isUsual = false;  // the one that the system prefers
  ObjectPtr<GstDevice> handle;

  // An element that captures with it or plays on it.
  GstElement* makeElement() const;
};

// What the engine uses a device of GStreamer's as; nothing for one that it does not use.
std::optional<DeviceType> typeOf(GstDevice* device);

struct StopMonitor {
  void operator()(GstDeviceMonitor* monitor) const;
};
struct StopProvider {
  void operator()(GstDeviceProvider* provider) const;
};

// Which devices there are, and which of each type is used: the one that the application has
// selected while it is there, otherwise the usual one, otherwise the first one. Coming and going is
// notified to the application. When no microphone or no speaker works that is there, or the sound
// server has gone, the sound server is asked again after a while, which grows. Belongs to the
// engine's thread.
class Devices {
 public:
  // Another device of this type is used, or none.
  using Changed = std::function<void(DeviceType type)>;

  Devices(support::EngineContext& context, Changed changed);
  // No thread is left.
  ~Devices() = default;
  Devices(const Devices&) = delete;
  Devices& operator=(const Devices&) = delete;

  // Looks for devices, and goes on watching them; again, after a sound server was not there. Blocks
  // for some hundredths of a second, but never for the sound server, whose devices come later.
  void start();
  // An empty identifier stands for no choice of the application's. What is not there cannot be
  // selected: that is logged and changes nothing. Until the sound server has answered for the first
  // time, the choice waits for it.
  bool select(DeviceType type, const std::string& id);
  // Null when there is none. Valid until the engine's thread comes back to its loop.
  const Device* used(DeviceType type) const;
  // The device that is used does not work: another one is used until the devices of its type change
  // or the application selects one.
  void fail(DeviceType type, const std::string& reason);

 private:
  struct DevicesOfType {
    std::vector<Device> devices;
    std::string selectedId;
    std::set<std::string> failedIds;
    std::string usedId;
  };

  void startCameras();
  // Asks the sound server on another thread, which is left behind when it does not answer.
  void searchSound(bool isRepeated);
  // Null when there is none.
  void soundFound(std::shared_ptr<GstDeviceProvider> found, bool isRepeated);
  void soundListed();
  bool isListed(DeviceType type) const;
  // Nobody tells when the server of the sound has gone, nor when it has come back.
  void restartSoundLater();
  // Has `bus` tell what is plugged and unplugged.
  void watch(GstBus* bus);
  void refresh();
  void adopt(DeviceType type, std::vector<Device> devices);
  void update(DeviceType type);

  support::EngineContext& context_;
  const Changed changed_;
  std::map<DeviceType, DevicesOfType> types_;
  // What comes and goes from then on is news.
  bool areCamerasListed_ = false;
  bool isSoundListed_ = false;
  bool isSoundSearched_ = false;  // at this moment
  Inbox inbox_;
  support::Time soundDelay_ = {};  // before the last restart of the sound
  support::Timer soundTimer_;
  bool isSoundAwaited_ = false;  // the timer is set
  // Last: their threads use the rest. Null while they do not run.
  std::unique_ptr<GstDeviceMonitor, StopMonitor> cameras_;
  std::shared_ptr<GstDeviceProvider> sound_;
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_DEVICES_H_
