// One video stream of the scripted engine.

#ifndef TEST_ENGINE_SCRIPTED_STREAM_H_
#define TEST_ENGINE_SCRIPTED_STREAM_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "base/mutex.h"
#include "tesselclient/tesselclient.h"
#include "test/engine/conversion.h"
#include "test/engine/scripted_frame.h"

namespace scripted {

// One plane of the frame that GetFrame answers with. Its bytes are, in this order of choice: null,
// `bytes`, `fill` throughout, or the frame's pattern.
struct PlaneAnswer {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t size = 0;  // of the memory as well
  std::uint32_t stride = 0;
  bool nullData = false;
  std::optional<Bytes> bytes;  // exactly `size` of them
  std::optional<std::uint8_t> fill;
};

// What GetFrame answers. The planes lie one behind the other in one frame's memory; the frame's
// number in the pattern is `frameId`.
struct FrameAnswer {
  bool noUpdate = false;
  bool clearFrame = false;
  std::uint64_t frameId = 0;
  std::uint32_t csrc = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint64_t engineValue = 0;
  PlaneAnswer y;
  PlaneAnswer u;
  PlaneAnswer v;
  bool always = false;  // a picture even for a caller that has this frame already
  bool fresh = false;   // each call makes a frame of its own, its id one higher
  bool recycled =
      false;  // with `fresh`: from memory that is used again, with only its identity new
};

// One frame for the stream's receiver.
struct PushedFrame {
  bool empty = false;  // an empty pointer instead of a frame
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t csrc = 0;
  std::uint32_t valueA = 0;
  std::uint32_t valueB = 0;
  std::uint32_t valueC = 0;
  // What frameBufferSize answers; the picture's I420 size if not given. Sizes beyond
  // kMostFrameMemory are told but not allocated.
  std::optional<std::uint64_t> bufferSize;
  bool nullBuffer = false;
  std::optional<Bytes> bytes;        // start of the buffer
  std::optional<std::uint8_t> fill;  // throughout, instead of the pattern
  std::uint64_t number = 0;          // in the pattern
};

// A run of frames, numbered from 0, for the stream's receiver.
struct Pushing {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t csrc = 0;
  std::uint32_t fps = 0;  // 0: as fast as the receiver takes them
  bool recycled = false;  // from memory that is used again, with only its identity new
};

inline constexpr std::uint64_t kMostFrameMemory = 64U << 20U;

// Shared by the engine and the frame managers handed out for it. Operations may be called from any
// thread; see SetFrameReceiver in the interface for what a receiver may rely on.
class Stream {
 public:
  explicit Stream(StreamKey key) : key_(std::move(key)) {}
  // stopPushing() has been called.
  ~Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  const StreamKey& key() const { return key_; }

  void setHasFrameManager(bool has) EXCLUDES(mutex_);
  bool hasFrameManager() EXCLUDES(mutex_);
  // From now on a removed receiver keeps receiving, and its removal does not wait for the running
  // delivery, which the interface forbids.
  void setKeepsReceiver(bool keeps) EXCLUDES(mutex_);

  void setAnswer(FrameAnswer answer) EXCLUDES(mutex_);
  void getFrame(std::uint32_t newestId, VideoFrame& frame) EXCLUDES(mutex_);

  void setReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) EXCLUDES(mutex_);
  // How many owners the receiver has; 0 stands for none.
  std::int64_t receiverOwners() EXCLUDES(mutex_);
  // Runs the receiver on the calling thread. False when none is attached.
  bool deliver(const std::shared_ptr<QVXCommon::IVideoFrame>& frame, std::uint32_t csrc)
      EXCLUDES(mutex_);
  // Null for an empty one.
  std::shared_ptr<QVXCommon::IVideoFrame> makeFrame(const PushedFrame& pushed, bool recycled);

  void startPushing(const Pushing& pushing) EXCLUDES(mutex_);
  // Answers with the number of frames that a receiver took; 0 if nothing was started.
  std::int64_t stopPushing() EXCLUDES(mutex_);

 private:
  struct Pusher {
    std::thread thread;
    std::int64_t delivered = 0;  // the pusher's own until it has been joined
  };

  std::shared_ptr<ScriptedFrame> makeFrame(const FrameAnswer& answer, std::uint64_t number);
  void push(const Pushing& pushing, Pusher& pusher) EXCLUDES(mutex_);

  const StreamKey key_;
  const std::shared_ptr<MemoryPool> pool_ = std::make_shared<MemoryPool>();

  base::Mutex mutex_;
  // A delivery has ended, the receiver has changed, or the pusher is to stop.
  base::CondVar changed_;

  bool hasFrameManager_ GUARDED_BY(mutex_) = false;
  std::shared_ptr<const FrameAnswer> answer_ GUARDED_BY(mutex_);
  std::uint64_t nextFreshId_ GUARDED_BY(mutex_) = 0;
  // The frame of an answer that is not fresh for each call.
  std::shared_ptr<ScriptedFrame> frame_ GUARDED_BY(mutex_);

  bool keepsReceiver_ GUARDED_BY(mutex_) = false;
  std::shared_ptr<IFrameRecieveCallback> receiver_ GUARDED_BY(mutex_);
  bool delivering_ GUARDED_BY(mutex_) = false;
  // Receivers waiting to be attached or detached; deliveries let them go first.
  int receiverChanges_ GUARDED_BY(mutex_) = 0;

  bool stopping_ GUARDED_BY(mutex_) = false;
  std::unique_ptr<Pusher> pusher_ GUARDED_BY(mutex_);
};

template <>
struct Fields<PlaneAnswer> {
  static void list(auto& record, auto&& field) {
    LISTED(width);
    LISTED(height);
    LISTED(size);
    LISTED(stride);
    LISTED(nullData);
    LISTED(bytes);
    LISTED(fill);
  }
};

template <>
struct Fields<FrameAnswer> {
  static void list(auto& record, auto&& field) {
    LISTED(noUpdate);
    LISTED(clearFrame);
    LISTED(frameId);
    LISTED(csrc);
    LISTED(width);
    LISTED(height);
    LISTED(engineValue);
    LISTED(y);
    LISTED(u);
    LISTED(v);
    LISTED(always);
    LISTED(fresh);
    LISTED(recycled);
  }
};

template <>
struct Fields<PushedFrame> {
  static void list(auto& record, auto&& field) {
    LISTED(empty);
    LISTED(width);
    LISTED(height);
    LISTED(csrc);
    LISTED(valueA);
    LISTED(valueB);
    LISTED(valueC);
    LISTED(bufferSize);
    LISTED(nullBuffer);
    LISTED(bytes);
    LISTED(fill);
    LISTED(number);
  }
};

template <>
struct Fields<Pushing> {
  static void list(auto& record, auto&& field) {
    LISTED(width);
    LISTED(height);
    LISTED(csrc);
    LISTED(fps);
    LISTED(recycled);
  }
};

}  // namespace scripted

#endif  // TEST_ENGINE_SCRIPTED_STREAM_H_
