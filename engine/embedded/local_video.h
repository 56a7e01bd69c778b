// The local camera.

#ifndef ENGINE_EMBEDDED_LOCAL_VIDEO_H_
#define ENGINE_EMBEDDED_LOCAL_VIDEO_H_

#include <cstdint>
#include <functional>
#include <memory>

#include "engine/embedded/engine_parts.h"
#include "engine/embedded/sender.h"

namespace embedded {

// Sends the local stream while the camera captures and the video is not muted, in a call or not.
// Belongs to the engine's thread.
class LocalVideo {
 public:
  // Makes the local stream, so that its frame manager is there before the camera captures.
  // `level` is how loud the local participant is.
  LocalVideo(EngineParts& parts, Sender::Level level);
  LocalVideo(const LocalVideo&) = delete;
  LocalVideo& operator=(const LocalVideo&) = delete;

  // Notified as the stream's coming and going.
  void setCapturing(bool capturing);
  void setMuted(bool muted);

 private:
  void startOrStop();

  EngineParts& parts_;
  const std::shared_ptr<VideoStream> stream_;
  Sender sender_;
  bool capturing_ = false;
  bool muted_ = false;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_LOCAL_VIDEO_H_
