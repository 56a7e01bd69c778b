// The pushing of one stream's frames to a receiver.

#ifndef ENGINE_SUPPORT_STREAMS_FRAME_DELIVERY_H_
#define ENGINE_SUPPORT_STREAMS_FRAME_DELIVERY_H_

#include <cstdint>
#include <memory>
#include <thread>

#include "base/mutex.h"
#include "engine/support/log.h"
#include "engine/support/worker.h"
#include "tesselclient/video_frame.h"

namespace support {

// Hands the newest frame of a stream to the stream's receiver, on a thread of its own that starts
// with the first receiver: a receiver may block for seconds, and neither the engine nor the other
// streams wait for it. A frame that the receiver was too slow for is replaced by the next one.
// Owned by its stream and, while it runs, by its thread. All operations may be called from any
// thread, also from the receiver; no lock is held while the receiver runs.
class FrameDelivery : public std::enable_shared_from_this<FrameDelivery> {
 public:
  FrameDelivery(StreamKey key, std::shared_ptr<const Log> log);
  FrameDelivery(const FrameDelivery&) = delete;
  FrameDelivery& operator=(const FrameDelivery&) = delete;

  // Replaces the receiver; an empty one ends the delivery. When this returns, the receiver of
  // before is neither running nor kept, unless it is the one that calls.
  void setReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) EXCLUDES(mutex_);
  // Never waits. Does nothing when there is no receiver.
  void offer(std::shared_ptr<QVXCommon::IVideoFrame> frame, std::uint32_t csrc) EXCLUDES(mutex_);
  // Forgets the frame that was offered last, if the receiver has not got it yet.
  void withdraw() EXCLUDES(mutex_);

  // The receiver is called no more, and the thread ends by itself. Never waits.
  void close() EXCLUDES(mutex_);
  // True once the thread of a closed delivery has nothing left to do.
  bool isFinished() const EXCLUDES(mutex_);
  // Waits for the thread of a closed delivery. Called once, by the engine.
  void join() { worker_.finish(); }

 private:
  struct Offer {
    std::shared_ptr<IFrameRecieveCallback> receiver;
    std::shared_ptr<QVXCommon::IVideoFrame> frame;
    std::uint32_t csrc = 0;
  };

  void run() EXCLUDES(mutex_);
  // Waits for something to hand over; nothing when the delivery was closed.
  Offer takeNext() EXCLUDES(mutex_);
  void handOver(const Offer& offer) const;
  void handedOver() EXCLUDES(mutex_);

  const StreamKey key_;
  const std::shared_ptr<const Log> log_;

  Worker worker_;  // started under mutex_, finished by join()

  mutable base::Mutex mutex_;
  base::CondVar changed_;
  std::shared_ptr<IFrameRecieveCallback> receiver_ GUARDED_BY(mutex_);
  std::shared_ptr<QVXCommon::IVideoFrame> frame_ GUARDED_BY(mutex_);  // the newest, not handed over
  std::uint32_t csrc_ GUARDED_BY(mutex_) = 0;
  std::uint64_t handOvers_ GUARDED_BY(mutex_) = 0;  // that have ended
  std::thread::id handingOver_ GUARDED_BY(mutex_);  // none while nothing runs
  bool started_ GUARDED_BY(mutex_) = false;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool finished_ GUARDED_BY(mutex_) = false;
};

}  // namespace support

#endif  // ENGINE_SUPPORT_STREAMS_FRAME_DELIVERY_H_
