#include "engine/webrtc/x_display.h"

#include <sys/socket.h>
#include <xcb/randr.h>

#include <algorithm>

namespace webrtc {
namespace {

constexpr std::uint32_t kMostWindows = 4096;

bool canTellMonitors(xcb_connection_t* connection) {
  const auto* const extension = xcb_get_extension_data(connection, &xcb_randr_id);
  if (!extension || !extension->present) return false;
  constexpr std::uint32_t kMajor = 1;
  constexpr std::uint32_t kMinor = 5;
  const ReplyPtr<xcb_randr_query_version_reply_t> version(xcb_randr_query_version_reply(
      connection, xcb_randr_query_version(connection, kMajor, kMinor), nullptr));
  return version && (version->major_version > kMajor || version->minor_version >= kMinor);
}

}  // namespace

void XInterrupter::interrupt() {
  base::MutexLock lock(mutex_);
  isInterrupted_ = true;
  if (socket_ >= 0) shutdown(socket_, SHUT_RDWR);
}

void XInterrupter::setSocket(int socket) {
  base::MutexLock lock(mutex_);
  socket_ = socket;
  if (socket_ >= 0 && isInterrupted_) shutdown(socket_, SHUT_RDWR);
}

XDisplay::XDisplay(XInterrupter& interrupter)
    : interrupter_(interrupter), connection_(xcb_connect(nullptr, nullptr)) {
  if (xcb_connection_has_error(connection_.get()) != 0) throw XError("there is no X server");
  interrupter_.setSocket(xcb_get_file_descriptor(connection_.get()));
  screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data;
  hasMonitors_ = canTellMonitors(connection_.get());
}

std::vector<tsl::ScreenMonitor> XDisplay::monitors() const {
  std::vector<tsl::ScreenMonitor> monitors;
  if (hasMonitors_) {
    const ReplyPtr<xcb_randr_get_monitors_reply_t> reply(xcb_randr_get_monitors_reply(
        connection(), xcb_randr_get_monitors(connection(), root(), 1), nullptr));
    if (!reply) throw XError("the X server does not tell its monitors");
    for (auto each = xcb_randr_get_monitors_monitors_iterator(reply.get()); each.rem > 0;
         xcb_randr_monitor_info_next(&each)) {
      const auto& monitor = *each.data;
      monitors.push_back({monitor.x, monitor.y, monitor.width, monitor.height,
                          static_cast<std::int32_t>(monitors.size())});
    }
  }
  if (monitors.empty()) {
    const ReplyPtr<xcb_get_geometry_reply_t> whole(
        xcb_get_geometry_reply(connection(), xcb_get_geometry(connection(), root()), nullptr));
    if (!whole) throw XError("the X server has gone");
    monitors.push_back({0, 0, whole->width, whole->height, 0});
  }
  return monitors;
}

void XDisplay::watchMonitors() const {
  // Monitors that somebody sets change the root window's configuration only.
  const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_change_window_attributes(connection(), root(), XCB_CW_EVENT_MASK, &events);
  if (hasMonitors_) {
    xcb_randr_select_input(connection(), root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
  }
  xcb_flush(connection());
}

std::vector<std::uint32_t> XDisplay::numbersAt(xcb_window_t window,
                                               const std::string& property) const {
  const auto atom = xcb_intern_atom(connection(), 1, static_cast<std::uint16_t>(property.size()),
                                    property.c_str());
  const ReplyPtr<xcb_intern_atom_reply_t> name(xcb_intern_atom_reply(connection(), atom, nullptr));
  if (!name || name->atom == XCB_ATOM_NONE) return {};
  const auto request =
      xcb_get_property(connection(), 0, window, name->atom, XCB_ATOM_ANY, 0, kMostWindows);
  const ReplyPtr<xcb_get_property_reply_t> reply(
      xcb_get_property_reply(connection(), request, nullptr));
  constexpr std::uint8_t kBits = 32;
  if (!reply || reply->format != kBits) return {};
  const auto* const first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  return {first, first + reply->value_len};
}

xcb_window_t XDisplay::topWindowOf(std::uint32_t process) const {
  auto windows = numbersAt(root(), "_NET_CLIENT_LIST_STACKING");
  if (windows.empty()) windows = numbersAt(root(), "_NET_CLIENT_LIST");
  // The list ends with the window on top.
  const auto found = std::find_if(windows.rbegin(), windows.rend(), [&](xcb_window_t window) {
    const auto owner = numbersAt(window, "_NET_WM_PID");
    return !owner.empty() && owner.front() == process;
  });
  return found == windows.rend() ? 0 : *found;
}

}  // namespace webrtc
