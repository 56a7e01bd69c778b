#include "engine/webrtc/devices.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>

namespace webrtc {
namespace {

constexpr std::array kTypes = {DeviceType::kVideo, DeviceType::kAudioIn, DeviceType::kAudioOut};
constexpr const char* kCameraClass = "Video/Source";
constexpr std::array kSoundTypes = {DeviceType::kAudioIn, DeviceType::kAudioOut};
constexpr const char* kSoundProvider = "pulsedeviceprovider";
constexpr const char* kSoundPackage = "gstreamer1.0-pulseaudio";
constexpr support::Time kShortestSoundDelay = std::chrono::seconds(1);
constexpr support::Time kLongestSoundDelay = std::chrono::seconds(8);

using StructurePtr = std::unique_ptr<GstStructure, ReleasedBy<gst_structure_free>>;

std::string textIn(const GstStructure* properties, const char* name) {
  const char* const text = properties ? gst_structure_get_string(properties, name) : nullptr;
  return text ? text : "";
}

// What names a device in every process and after a new start.
std::string idOf(GstDevice* device, const GstStructure* properties) {
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(device), "internal-name")) {
    return TextPtr(property<char*>(device, "internal-name")).get();
  }
  for (const char* const name : {"node.name", "v4l2.device.bus_info", "device.path"}) {
    std::string id = textIn(properties, name);
    if (!id.empty()) return id;
  }
  return TextPtr(gst_device_get_display_name(device)).get();
}

// Null without its plugin. One of our own: the factory's is shared by all engines of the process,
// and with it its bus.
ObjectPtr<GstDeviceProvider> makeSoundProvider() {
  const ObjectPtr<GstDeviceProviderFactory> found(gst_device_provider_factory_find(kSoundProvider));
  const ObjectPtr<GstPluginFeature> factory(
      found ? gst_plugin_feature_load(GST_PLUGIN_FEATURE(found.get())) : nullptr);
  if (!factory) return nullptr;
  const GType type = gst_device_provider_factory_get_device_provider_type(
      GST_DEVICE_PROVIDER_FACTORY(factory.get()));
  ObjectPtr<GstDeviceProvider> provider(GST_DEVICE_PROVIDER(g_object_new(type, nullptr)));
  gst_object_ref_sink(provider.get());
  return provider;
}

const Device* find(const std::vector<Device>& devices, const std::string& id) {
  const auto found = std::find_if(devices.begin(), devices.end(),
                                  [&id](const Device& device) { return device.id == id; });
  return found == devices.end() ? nullptr : &*found;
}

}  // namespace

std::optional<DeviceType> typeOf(GstDevice* device) {
  const StructurePtr properties(gst_device_get_properties(device));
  // What plays on a speaker can be recorded, too, but that is no microphone.
  if (textIn(properties.get(), "device.class") == "monitor") return std::nullopt;
  if (gst_device_has_classes(device, kCameraClass)) return DeviceType::kVideo;
  if (gst_device_has_classes(device, "Audio/Source")) return DeviceType::kAudioIn;
  if (gst_device_has_classes(device, "Audio/Sink")) return DeviceType::kAudioOut;
  return std::nullopt;
}

GstElement* Device::makeElement() const { return gst_device_create_element(handle.get(), nullptr); }

void StopMonitor::operator()(GstDeviceMonitor* monitor) const {
  gst_device_monitor_stop(monitor);
  gst_object_unref(monitor);
}

void StopProvider::operator()(GstDeviceProvider* provider) const {
  if (!provider) return;
  gst_device_provider_stop(provider);
  gst_object_unref(provider);
}

Devices::Devices(support::EngineContext& context, Changed changed)
    : context_(context),
      changed_(std::move(changed)),
      inbox_(context.loop),
      soundTimer_(context.loop) {}

void Devices::start() {
  if (!cameras_) {
    startCameras();
    refresh();
    areCamerasListed_ = true;
  }
  if (!sound_) searchSound(false);
}

void Devices::startCameras() {
  ObjectPtr<GstDeviceMonitor> monitor(gst_device_monitor_new());
  gst_device_monitor_add_filter(monitor.get(), kCameraClass, nullptr);
  const ObjectPtr<GstBus> bus(gst_device_monitor_get_bus(monitor.get()));
  watch(bus.get());
  if (gst_device_monitor_start(monitor.get())) cameras_.reset(monitor.release());
}

// Not by a monitor as well: where PipeWire runs, a monitor leaves its sound to nobody but PipeWire,
// whose devices have other identifiers than PulseAudio's.
void Devices::searchSound(bool isRepeated) {
  if (isSoundSearched_) return;
  auto provider = makeSoundProvider();
  if (!provider) {
    context_.log->write(std::string("there is no sound: ") + kSoundProvider +
                        " is missing, install " + kSoundPackage);
    soundListed();
    return;
  }
  isSoundSearched_ = true;
  const ObjectPtr<GstBus> bus(gst_device_provider_get_bus(provider.get()));
  watch(bus.get());
  const auto search = [this, isRepeated,
                       post = inbox_.poster()](ObjectPtr<GstDeviceProvider> asked) {
    const bool isThere = gst_device_provider_start(asked.get()) != FALSE;
    const std::shared_ptr<GstDeviceProvider> found(isThere ? asked.release() : nullptr,
                                                   StopProvider());
    post([this, found, isRepeated] { soundFound(found, isRepeated); });
  };
  std::thread(search, std::move(provider)).detach();
}

void Devices::soundFound(std::shared_ptr<GstDeviceProvider> found, bool isRepeated) {
  isSoundSearched_ = false;
  sound_ = std::move(found);
  for (const DeviceType type : kSoundTypes) {
    // A type of which one device works goes on with it.
    if (!used(type)) types_[type].failedIds.clear();
  }
  refresh();
  soundListed();
  if (isRepeated && !sound_) restartSoundLater();
}

void Devices::soundListed() {
  if (std::exchange(isSoundListed_, true)) return;
  for (const DeviceType type : kSoundTypes)
    select(type, std::exchange(types_[type].selectedId, ""));
}

bool Devices::isListed(DeviceType type) const {
  return type == DeviceType::kVideo ? areCamerasListed_ : isSoundListed_;
}

void Devices::restartSoundLater() {
  if (std::exchange(isSoundAwaited_, true)) return;
  soundDelay_ = std::clamp(2 * soundDelay_, kShortestSoundDelay, kLongestSoundDelay);
  soundTimer_.runAt(context_.loop.now() + soundDelay_, [this] {
    isSoundAwaited_ = false;
    searchSound(true);
  });
}

void Devices::watch(GstBus* bus) {
  using Handler = Handed<void>;
  auto* const handler =
      new Handler([this, post = inbox_.poster()] { post([this] { refresh(); }); });
  gst_bus_set_sync_handler(
      bus,
      [](GstBus*, GstMessage* message, gpointer data) {
        Handler::call(data);
        gst_message_unref(message);
        return GST_BUS_DROP;
      },
      handler, Handler::destroy);
}

void Devices::refresh() {
  std::map<DeviceType, std::vector<Device>> found;
  const auto add = [&found](GList* handles) {
    for (const GList* each = handles; each; each = each->next) {
      ObjectPtr<GstDevice> handle(GST_DEVICE(each->data));
      const StructurePtr properties(gst_device_get_properties(handle.get()));
      const auto type = typeOf(handle.get());
      if (!type) continue;
      auto& devices = found[*type];
      // A camera with several pictures is one device for each.
      std::string id = idOf(handle.get(), properties.get());
      for (int number = 2; find(devices, id); ++number) {
        id = idOf(handle.get(), properties.get()) + '#' + std::to_string(number);
      }
      gboolean isUsual = FALSE;
      if (properties) gst_structure_get_boolean(properties.get(), "is-default", &isUsual);
      const TextPtr name(gst_device_get_display_name(handle.get()));
      devices.push_back({std::move(id), name.get(), isUsual != FALSE, std::move(handle)});
    }
    g_list_free(handles);
  };
  if (cameras_) add(gst_device_monitor_get_devices(cameras_.get()));
  if (sound_) add(gst_device_provider_get_devices(sound_.get()));
  for (const DeviceType type : kTypes) adopt(type, std::move(found[type]));
}

void Devices::adopt(DeviceType type, std::vector<Device> devices) {
  DevicesOfType& ofType = types_[type];
  const std::vector<Device> before = std::exchange(ofType.devices, std::move(devices));
  std::vector<std::string> changedIds;
  const auto compare = [&](const auto& some, const auto& others, const char* what) {
    for (const Device& device : some) {
      if (find(others, device.id)) continue;
      context_.log->write(device.id + " (" + device.name + ") " + what);
      changedIds.push_back(device.id);
    }
  };
  compare(before, ofType.devices, "unplugged");
  compare(ofType.devices, before, "plugged in");
  if (!changedIds.empty()) {
    ofType.failedIds.clear();
    soundDelay_ = {};
  }
  update(type);
  if (!isListed(type)) return;
  for (const auto& id : changedIds) {
    context_.notifier.notify(&INotifyCallback::NotifyDeviceChange, id, type);
  }
}

bool Devices::select(DeviceType type, const std::string& id) {
  start();
  DevicesOfType& ofType = types_[type];
  if (!isListed(type)) {
    ofType.selectedId = id;
    return true;
  }
  if (!id.empty() && !find(ofType.devices, id)) {
    context_.log->write("there is no device " + id);
    return false;
  }
  ofType.selectedId = id;
  ofType.failedIds.clear();
  update(type);
  return true;
}

void Devices::fail(DeviceType type, const std::string& reason) {
  DevicesOfType& ofType = types_[type];
  if (ofType.usedId.empty()) return;
  context_.log->write(ofType.usedId + " does not work: " + reason);
  ofType.failedIds.insert(ofType.usedId);
  update(type);
}

void Devices::update(DeviceType type) {
  DevicesOfType& ofType = types_[type];
  const auto works = [&ofType](const Device& device) {
    return !ofType.failedIds.contains(device.id);
  };
  const Device* chosen = find(ofType.devices, ofType.selectedId);
  if (chosen && !works(*chosen)) chosen = nullptr;
  for (const Device& device : ofType.devices) {
    const bool isBetter = !chosen || (device.isUsual && chosen->id != ofType.selectedId);
    if (isBetter && works(device)) chosen = &device;
  }
  const bool isSound = type != DeviceType::kVideo;
  if (isSound && !chosen && !ofType.devices.empty()) restartSoundLater();
  const std::string id = chosen ? chosen->id : "";
  if (std::exchange(ofType.usedId, id) == id) return;
  if (chosen) context_.log->write("uses " + id);
  changed_(type);
}

const Device* Devices::used(DeviceType type) const {
  const auto found = types_.find(type);
  if (found == types_.end() || found->second.usedId.empty()) return nullptr;
  return find(found->second.devices, found->second.usedId);
}

}  // namespace webrtc
