// What the local participant shows.

#ifndef ENGINE_WEBRTC_LOCAL_VIDEO_H_
#define ENGINE_WEBRTC_LOCAL_VIDEO_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "engine/support/engine.h"
#include "engine/support/streams/video_stream.h"
#include "engine/support/task_loop.h"
#include "engine/webrtc/camera.h"
#include "engine/webrtc/local_sources.h"
#include "engine/webrtc/video_sender.h"
#include "tesselclient/records.h"

namespace webrtc {

// The camera runs while the application captures and the video is not muted, in a call or not. Its
// frames go to the local stream and to whoever sends them, once. A device that stops giving frames
// is opened again. Belongs to the engine's thread, except for what the camera's thread does.
class LocalVideo {
 public:
  // `changed` is called when another camera captures, the same one does otherwise, or none does any
  // more.
  LocalVideo(support::EngineContext& context, Devices& devices,
             std::shared_ptr<support::FramePool> pool, std::function<void()> changed);
  LocalVideo(const LocalVideo&) = delete;
  LocalVideo& operator=(const LocalVideo&) = delete;

  // Notified as the local stream's coming and going.
  void setCapturing(bool isCapturing);
  void setMuted(bool isMuted);
  // There is a camera, and it captures.
  bool isShowing() const { return capture_.has_value(); }
  // Which camera captures, and how. What is not there, or what no camera can do, is logged and
  // changes nothing.
  void select(const tsl::VideoDevice& camera);
  // Another camera is to be used.
  void deviceChanged();
  // What takes the place of a camera; nothing in particular outside a call.
  void setSource(const CameraSource& source);
  // Empty outside a call.
  void setSender(std::shared_ptr<VideoSender> sender) EXCLUDES(mutex_);

  std::uint32_t csrc() const { return stream_->csrc(); }

 private:
  // What is captured, and how.
  struct Capture {
    CameraSource source;
    std::string deviceId;  // of a device
    support::Size size;
    support::FrameRate rate;

    bool operator==(const Capture&) const = default;
  };

  // Nothing when there is nothing to capture.
  std::optional<Capture> wantedCapture() const;
  // Brings the camera in line with what is wanted; says whether that changed anything.
  bool update();
  // The same, and notifies a change of the local stream.
  void updateAndNotify();
  // In the place of the present camera, if there is one.
  void open() EXCLUDES(mutex_);
  std::unique_ptr<Camera> openCamera();
  // Opens a device again that has shown frames but does so no more.
  void watch() EXCLUDES(mutex_);
  std::uint64_t lastId() EXCLUDES(mutex_);
  // On the camera's thread.
  void show(const std::shared_ptr<support::Frame>& frame) EXCLUDES(mutex_);

  support::EngineContext& context_;
  Devices& devices_;
  const std::shared_ptr<support::FramePool> pool_;
  const std::shared_ptr<support::VideoStream> stream_;
  const std::function<void()> changed_;
  support::Size size_ = {1280, 720};
  support::FrameRate rate_;
  CameraSource source_;
  bool isCapturing_ = false;
  bool isMuted_ = false;
  std::optional<Capture> capture_;  // with what the camera was opened

  base::Mutex mutex_;
  std::shared_ptr<VideoSender> sender_ GUARDED_BY(mutex_);
  std::uint64_t lastId_ GUARDED_BY(mutex_) = 0;  // of all frames ever shown
  // Nothing before the first frame of the present camera, which may take its time.
  std::optional<support::Time> shownAt_ GUARDED_BY(mutex_);

  support::Timer watch_;
  std::unique_ptr<Camera> camera_;  // last: its thread uses the rest
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_LOCAL_VIDEO_H_
