// TesselWrapper: pulling video frames.

#include "addon/napi/arguments.h"
#include "addon/utils/stream_key_argument.h"
#include "addon/wrapper/tessel_wrapper.h"

namespace wrapper {

Napi::Value TesselWrapper::getFrame(const Napi::CallbackInfo& info) {
  napi::napiCheckArgLength(info, 2);
  const StreamKey key = Utils::getStreamInfo(info);
  const std::int64_t frameId = napi::napiGetArgAsInt64(info, 1);
  VideoFrame frame;
  streamManager_->getFrame(key, frameId, frame);
  if (frame.noUpdate) return frameObjects_.initFrame(key, frame, frame.frame, retainedPlanes_);
  // A new picture was received: the planes of the one before it are taken back.
  clearPlanes_.takeBack(key);
  if (frame.clearFrame) return frameObjects_.initFrame(key, frame, frame.frame, clearPlanes_);
  retainedPlanes_.takeBack(key);
  return frameObjects_.initFrame(key, frame, frame.frame, retainedPlanes_);
}

Napi::Value TesselWrapper::getLastFrame(const Napi::CallbackInfo& info) {
  napi::napiCheckArgLength(info, 1);
  const StreamKey key = Utils::getStreamInfo(info);
  VideoFrame frame;
  streamManager_->getLastFrame(key, frame);
  return frameObjects_.initFrame(key, frame, frame.frame, retainedPlanes_);
}

// A frame is released by the request for the next one.
void TesselWrapper::releaseFrame(const Napi::CallbackInfo&) {}

}  // namespace wrapper
