// Cameras.

#ifndef ENGINE_WEBRTC_CAMERA_H_
#define ENGINE_WEBRTC_CAMERA_H_

#include <cstdint>
#include <functional>
#include <memory>

#include "base/mutex.h"
#include "engine/support/clock.h"
#include "engine/support/log.h"
#include "engine/support/pictures/picture_source.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/support/worker.h"
#include "engine/webrtc/device_pipeline.h"
#include "engine/webrtc/devices.h"

namespace webrtc {

// Captures from its construction to its destruction, which waits for the frame that is being handed
// over.
class Camera {
 public:
  // Gets the frames, without numbers, on a thread of the camera's.
  using Viewer = std::function<void(const std::shared_ptr<support::Frame>& frame)>;

  virtual ~Camera() = default;
};

// Captures what a picture source draws from picture `first` on, on a thread of its own. A camera
// that comes too late does not catch up: it goes on from where it is.
class DrawnCamera final : public Camera {
 public:
  DrawnCamera(std::unique_ptr<support::PictureSource> source, std::uint64_t first,
              support::FrameRate rate, std::shared_ptr<const support::Clock> clock,
              std::shared_ptr<support::FramePool> pool, std::shared_ptr<const support::Log> log,
              Viewer viewer);
  ~DrawnCamera() override;
  DrawnCamera(const DrawnCamera&) = delete;
  DrawnCamera& operator=(const DrawnCamera&) = delete;

 private:
  void run() EXCLUDES(mutex_);
  // False when the camera is to stop.
  bool waitUntil(support::Time time) EXCLUDES(mutex_);
  void capture(std::uint64_t number);

  const std::unique_ptr<support::PictureSource> source_;  // belongs to the thread
  const std::uint64_t first_;
  const support::Time period_;
  const std::shared_ptr<const support::Clock> clock_;
  const std::shared_ptr<support::FramePool> pool_;
  const std::shared_ptr<const support::Log> log_;
  const Viewer viewer_;

  base::Mutex mutex_;
  base::CondVar changed_;
  bool isStopped_ GUARDED_BY(mutex_) = false;

  support::Worker worker_;  // last: it uses the rest
};

// Captures with a device, in what of its sizes and rates comes nearest to `size` and `rate`.
class DeviceCamera final : public Camera {
 public:
  // `failed` is called once, on the engine's thread, when the device does not work any more.
  DeviceCamera(support::TaskLoop& loop, const Device& device, support::Size size,
               support::FrameRate rate, std::shared_ptr<support::FramePool> pool, Viewer viewer,
               DevicePipeline::Failed failed);
  DeviceCamera(const DeviceCamera&) = delete;
  DeviceCamera& operator=(const DeviceCamera&) = delete;

 private:
  const std::shared_ptr<support::FramePool> pool_;
  const Viewer viewer_;
  DevicePipeline pipeline_;  // last: its threads use the rest
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CAMERA_H_
