// Capturing from the screen.

#ifndef ENGINE_WEBRTC_SCREEN_CAPTURE_H_
#define ENGINE_WEBRTC_SCREEN_CAPTURE_H_

#include <functional>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "engine/support/clock.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/support/worker.h"
#include "engine/webrtc/x_display.h"
#include "tesselclient/records.h"

namespace webrtc {

// Captures a monitor, a window, or the window on top of an application's, 15 times per second, on a
// thread of its own. Pictures have at most 1920x1080. Belongs to the engine's thread.
class ScreenCapture {
 public:
  // Gets the frames, without numbers and times, on the capture's thread.
  using Viewer = std::function<void(const std::shared_ptr<support::Frame>& frame)>;
  // Called at most once, on the capture's thread, when nothing more comes.
  using Failed = std::function<void(const std::string& reason)>;

  ScreenCapture(const tsl::ContentShareParams& params, std::shared_ptr<support::FramePool> pool,
                Viewer viewer, Failed failed);
  // Waits for the frame that is being handed over.
  ~ScreenCapture();
  ScreenCapture(const ScreenCapture&) = delete;
  ScreenCapture& operator=(const ScreenCapture&) = delete;

  // As the log names it.
  std::string title() const;

 private:
  void run() EXCLUDES(mutex_);
  // False when the capture is to stop.
  bool waitUntil(support::Time time) EXCLUDES(mutex_);

  const tsl::ContentShareParams params_;
  const std::shared_ptr<support::FramePool> pool_;
  const Viewer viewer_;
  const Failed failed_;
  const std::shared_ptr<const support::Clock> clock_ = support::realClock();

  base::Mutex mutex_;
  base::CondVar changed_;
  bool isStopped_ GUARDED_BY(mutex_) = false;

  XInterrupter interrupter_;
  support::Worker worker_;  // last: it uses the rest
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_SCREEN_CAPTURE_H_
