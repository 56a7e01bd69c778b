// examine_webrtc_engine: prints what the engine finds on this machine, for the package's doctor.
// One JSON object: { elements: [{ name, package, isThere }], devices: [{ kind, name }] }. A program
// of its own, so that no plugin's failure is one of who asks.

#include <gst/gst.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "engine/webrtc/devices.h"
#include "engine/webrtc/elements.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/janus_message.h"

namespace {

using webrtc::Json;
using webrtc::ObjectPtr;
using webrtc::TextPtr;

Json elements() {
  Json all = Json::array();
  for (const auto& [name, package, isThere] : webrtc::examineElements()) {
    all.push_back({{"name", name}, {"package", package}, {"isThere", isThere}});
  }
  return all;
}

const char* kindOf(DeviceType type) {
  switch (type) {
    case DeviceType::kVideo:
      return "camera";
    case DeviceType::kAudioIn:
      return "microphone";
    case DeviceType::kAudioOut:
      break;
  }
  return "speaker";
}

Json devices() {
  const ObjectPtr<GstDeviceMonitor> monitor(gst_device_monitor_new());
  for (const char* const kind : {"Video/Source", "Audio/Source", "Audio/Sink"}) {
    gst_device_monitor_add_filter(monitor.get(), kind, nullptr);
  }
  Json all = Json::array();
  if (!gst_device_monitor_start(monitor.get())) return all;
  GList* const found = gst_device_monitor_get_devices(monitor.get());
  for (const GList* each = found; each; each = each->next) {
    auto* const device = static_cast<GstDevice*>(each->data);
    const auto type = webrtc::typeOf(device);
    if (!type) continue;
    const TextPtr name(gst_device_get_display_name(device));
    all.push_back({{"kind", kindOf(*type)}, {"name", name.get()}});
  }
  g_list_free_full(found, gst_object_unref);
  gst_device_monitor_stop(monitor.get());
  return all;
}

}  // namespace

int main() {
  try {
    const Json found = {{"elements", elements()}, {"devices", devices()}};
    std::puts(found.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
  }
}
