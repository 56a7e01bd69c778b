// The sending side of a video stream.

#ifndef ENGINE_EMBEDDED_STREAMS_SENDER_H_
#define ENGINE_EMBEDDED_STREAMS_SENDER_H_

#include <cstdint>
#include <functional>
#include <memory>

#include "engine/embedded/streams/lossy_link.h"
#include "engine/embedded/streams/traffic_meter.h"
#include "engine/support/pictures/picture.h"
#include "engine/support/pictures/picture_source.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/support/streams/video_stream.h"
#include "engine/support/task_loop.h"

namespace embedded {

// When frame `index`, counted from 0, is due after the first one.
support::Time frameTime(support::FrameRate rate, std::uint64_t index);

// Draws the pictures of a source into frames, at a rate, and publishes those that the link carries
// in a stream. Frames are numbered from 1 for as long as the sender lives, whatever it sends; those
// that are lost, or left out for a lower rate, have numbers too. A sender that is late does
// not catch up: it goes on from where it is. Belongs to the engine's thread.
class Sender {
 public:
  using Level = std::function<std::uint32_t()>;  // how loud the sender is now, 0 to 100

  Sender(support::TaskLoop& loop, std::shared_ptr<support::FramePool> pool,
         std::shared_ptr<support::VideoStream> stream, LossyLink link, Level level);
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  TrafficMeter& meter() { return meter_; }

  // Sends from now on, the first frame at once; replaces what was sent before. Of the frames that
  // due at `rate` only `mostPerSecond` are published; 0 means all.
  void start(std::unique_ptr<support::PictureSource> source, support::FrameRate rate,
             std::uint32_t mostPerSecond);
  // Goes on at the same rate with another source and another limit.
  void change(std::unique_ptr<support::PictureSource> source, std::uint32_t mostPerSecond);
  // The stream shows nothing from now on.
  void stop();

 private:
  void setTimer();
  void tick();
  bool isLeftOut(std::uint64_t tick) const;
  void send(std::uint64_t id);

  support::TaskLoop& loop_;
  const std::shared_ptr<support::FramePool> pool_;
  const std::shared_ptr<support::VideoStream> stream_;
  LossyLink link_;
  const Level level_;
  TrafficMeter meter_;
  std::unique_ptr<support::PictureSource> source_;
  support::FrameRate rate_;
  std::uint32_t mostPerSecond_ = 0;
  support::Time startedAt_ = {};
  std::uint64_t ticks_ = 0;   // since the start
  std::uint64_t lastId_ = 0;  // of all frames ever sent
  support::Timer timer_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_STREAMS_SENDER_H_
