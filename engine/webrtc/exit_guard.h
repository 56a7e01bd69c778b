// What is to end before its process does.

#ifndef ENGINE_WEBRTC_EXIT_GUARD_H_
#define ENGINE_WEBRTC_EXIT_GUARD_H_

#include <functional>

#include "engine/support/task_loop.h"

namespace webrtc {

// Runs `end` on the thread of `loop`, and waits for it, when the process ends by exit() while this
// object lives. exit() destroys nothing that is on the heap, and it is how process.exit() and an
// error that nobody handled end a Node.js process: without this the server would keep the
// participant until the session times out, and media threads would use libraries that are being
// taken down.
//
// Owned by an engine. Made before the loop starts, and destroyed after it was stopped. Armed from
// its construction on.
class ExitGuard {
 public:
  ExitGuard(support::TaskLoop& loop, std::function<void()> end);
  ~ExitGuard();
  ExitGuard(const ExitGuard&) = delete;
  ExitGuard& operator=(const ExitGuard&) = delete;

  // For all guards of the process. exit() runs last what was registered first, and each library
  // registers its own end when it is loaded: called whenever libraries may have been loaded that
  // the engine uses. Any thread.
  static void arm();

 private:
  static void runAll();
  void run() const;

  support::TaskLoop& loop_;
  const std::function<void()> end_;
  mutable bool hasRun_ = false;  // of the thread that exits
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_EXIT_GUARD_H_
