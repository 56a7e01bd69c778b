// Decoded video frames as the engine hands them out: by pulling (VideoFrame) and by pushing
// (QVXCommon::IVideoFrame).

#ifndef TESSELCLIENT_VIDEO_FRAME_H_
#define TESSELCLIENT_VIDEO_FRAME_H_

#include <cstdint>
#include <memory>

#include "tesselclient/types.h"

namespace QVXCommon {

// One decoded picture, planar YUV 4:2:0 (I420) in one contiguous buffer with tightly packed rows:
// the Y plane of width x height bytes, then U, then V, each of ((width + 1) / 2) x
// ((height + 1) / 2) bytes. Owned by the engine, held through shared ownership, and unchanged for
// as long as anyone holds it. All operations may be called from any thread.
//
// The order of the virtual operations is an ABI promise; test/native/engine/engine_abi_test.cc
// fixes it.
class TESSELCLIENT_API IVideoFrame {
 public:
  virtual ~IVideoFrame() = default;

  virtual std::uint32_t frameWidth() const = 0;         // pixels
  virtual std::uint32_t frameHeight() const = 0;        // pixels
  virtual const std::uint8_t* frameBuffer() const = 0;  // start of the Y plane
  virtual std::uint32_t frameValueA() const = 0;        // the engine's own, passed on as is
  virtual std::uint32_t frameValueB() const = 0;        // the engine's own, passed on as is
  virtual std::uint32_t frameValueC() const = 0;        // the engine's own, passed on as is
  virtual std::uint64_t frameBufferSize() const = 0;    // bytes
};

}  // namespace QVXCommon

// One plane of a VideoFrame. The memory belongs to VideoFrame::frame.
struct VideoPlane {
  const std::uint8_t* data = nullptr;
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // rows
  std::uint32_t size = 0;    // bytes
  std::uint32_t stride = 0;  // bytes from one row to the next
};

// The answer to a request for a stream's frame. Copying it shares ownership of the pixels.
struct VideoFrame {
  bool noUpdate = false;    // no new picture: the size and plane fields are not to be read
  bool clearFrame = false;  // the receiver is to clear the picture that it shows
  std::uint64_t frameId = 0;
  std::uint32_t csrc = 0;                         // RTP contributing source
  std::shared_ptr<QVXCommon::IVideoFrame> frame;  // keeps the planes' memory alive
  std::uint32_t width = 0;                        // pixels
  std::uint32_t height = 0;                       // pixels
  std::uint64_t engineValue = 0;                  // the engine's own, copied and never read
  VideoPlane yPlane;
  VideoPlane uPlane;
  VideoPlane vPlane;
};

// Receives every frame of a stream as it arrives. Called on the engine's frame thread for that
// stream, never concurrently for one stream. The frame may be empty.
class TESSELCLIENT_API IFrameRecieveCallback {
 public:
  virtual ~IFrameRecieveCallback() = default;

  virtual void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame, unsigned int csrc,
                                  const StreamKey& key) = 0;
};

// The engine's source of one stream's frames. Obtained from TSLMManager::GetFrameManager under
// shared ownership. All operations may be called from any thread.
//
// The order of the virtual operations is an ABI promise; test/native/engine/engine_abi_test.cc
// fixes it.
class TESSELCLIENT_API IFrameManager {
 public:
  virtual ~IFrameManager() = default;

  // Fills every field of `frame`. `frameId` is the low 32 bits of the identifier of the newest
  // frame that the caller has; noUpdate is true when there is none newer.
  virtual void GetFrame(std::uint32_t frameId, VideoFrame& frame) = 0;
  virtual void ReleaseFrame(std::int64_t frameId) = 0;
  virtual void EnableFrameCapture() = 0;
  virtual void DisableFrameCapture() = 0;
  // Placeholders that keep SetFrameReceiver in its slot.
  virtual void ReservedSlot6() {}
  virtual void ReservedSlot7() {}
  // Attaches the receiver of the stream's frames, or detaches it when `receiver` is empty. When
  // this returns, the receiver attached before is not running and will not be called again.
  virtual void SetFrameReceiver(std::shared_ptr<IFrameRecieveCallback> receiver) = 0;
};

#endif  // TESSELCLIENT_VIDEO_FRAME_H_
