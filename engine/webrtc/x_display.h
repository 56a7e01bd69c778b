// The X server of the desktop.

#ifndef ENGINE_WEBRTC_X_DISPLAY_H_
#define ENGINE_WEBRTC_X_DISPLAY_H_

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "engine/webrtc/glib.h"
#include "tesselclient/records.h"

namespace webrtc {

// Answers of the X server.
template <typename T>
using ReplyPtr = std::unique_ptr<T, ReleasedBy<std::free>>;

// Why the X server does not do something.
class XError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Ends the wait of one thread for an X server that does not answer. All operations may be called
// from any thread.
class XInterrupter {
 public:
  XInterrupter() = default;
  XInterrupter(const XInterrupter&) = delete;
  XInterrupter& operator=(const XInterrupter&) = delete;

  // From now on the thread's connection is useless: its requests fail.
  void interrupt() EXCLUDES(mutex_);

 private:
  friend class XDisplay;

  // What is interrupted; -1 for nothing.
  void setSocket(int socket) EXCLUDES(mutex_);

  base::Mutex mutex_;
  int socket_ GUARDED_BY(mutex_) = -1;
  bool isInterrupted_ GUARDED_BY(mutex_) = false;
};

// A connection to the X server that the environment names. XCB tells errors, where Xlib ends the
// process. Used by one thread at a time.
class XDisplay {
 public:
  // Throws XError when there is no X server. The interrupter outlives it.
  explicit XDisplay(XInterrupter& interrupter);
  ~XDisplay() { interrupter_.setSocket(-1); }
  XDisplay(const XDisplay&) = delete;
  XDisplay& operator=(const XDisplay&) = delete;

  xcb_connection_t* connection() const { return connection_.get(); }
  xcb_window_t root() const { return screen_->root; }
  // Throws XError when the server has gone.
  std::vector<tsl::ScreenMonitor> monitors() const;
  // The window on top of the others of a process; 0 when there is none.
  xcb_window_t topWindowOf(std::uint32_t process) const;
  // Has the server send an event when the monitors change.
  void watchMonitors() const;

 private:
  // The numbers in a property of a window; empty without it.
  std::vector<std::uint32_t> numbersAt(xcb_window_t window, const std::string& property) const;

  using ConnectionPtr = std::unique_ptr<xcb_connection_t, ReleasedBy<xcb_disconnect>>;

  XInterrupter& interrupter_;
  const ConnectionPtr connection_;
  const xcb_screen_t* screen_ = nullptr;
  bool hasMonitors_ = false;  // the server tells of them
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_X_DISPLAY_H_
