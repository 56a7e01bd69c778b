// The monitors of the desktop.

#ifndef ENGINE_WEBRTC_SCREENS_H_
#define ENGINE_WEBRTC_SCREENS_H_

#include "engine/support/engine.h"
#include "engine/support/file_descriptor.h"
#include "engine/support/worker.h"
#include "engine/webrtc/x_display.h"

namespace webrtc {

// Tells the application which monitors there are, and follows their changes, on a thread of its
// own: the X server may take its time. Without an X server there are none. Owned by the engine.
class Screens {
 public:
  explicit Screens(support::EngineContext& context);
  ~Screens();
  Screens(const Screens&) = delete;
  Screens& operator=(const Screens&) = delete;

  // Called once.
  void start();

 private:
  void run();

  support::EngineContext& context_;
  const support::FileDescriptor stop_;  // readable when the thread is to end
  XInterrupter interrupter_;
  support::Worker worker_;  // last: it uses the rest
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_SCREENS_H_
