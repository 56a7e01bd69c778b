#include "engine/webrtc/screens.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace webrtc {
namespace {

// Waits until the server has told something. False when `stop` is readable.
bool waitForEvents(const XDisplay& display, int stop) {
  std::array<pollfd, 2> files = {
      {{.fd = xcb_get_file_descriptor(display.connection()), .events = POLLIN, .revents = 0},
       {.fd = stop, .events = POLLIN, .revents = 0}}};
  while (poll(files.data(), files.size(), -1) < 0 && errno == EINTR) {
  }
  return files[1].revents == 0;
}

// Says whether there were any.
bool dropEvents(const XDisplay& display) {
  bool wereAny = false;
  while (const ReplyPtr<xcb_generic_event_t> event{xcb_poll_for_event(display.connection())}) {
    wereAny = true;
  }
  return wereAny;
}

}  // namespace

Screens::Screens(support::EngineContext& context)
    : context_(context), stop_(eventfd(0, EFD_CLOEXEC)) {}

Screens::~Screens() {
  eventfd_write(stop_.get(), 1);
  interrupter_.interrupt();
  worker_.finish();
}

void Screens::start() {
  worker_.start([this] { run(); });
}

void Screens::run() {
  try {
    const XDisplay display(interrupter_);
    display.watchMonitors();
    std::size_t count = 0;
    do {
      // Until none has come with the answer: nobody would wake us for it.
      std::vector<tsl::ScreenMonitor> monitors;
      do {
        monitors = display.monitors();
      } while (dropEvents(display));
      if (monitors.size() != count) {
        count = monitors.size();
        context_.log->write("monitors: " + std::to_string(count));
      }
      context_.monitors.set(std::move(monitors));
    } while (waitForEvents(display, stop_.get()));
  } catch (const std::exception& error) {
    context_.monitors.set({});
    context_.log->write(std::string("no monitors: ") + error.what());
  }
}

}  // namespace webrtc
