// TesselWrapper: pulling video frames.

#include "addon/frames/stream_key_argument.h"
#include "addon/napi/arguments.h"
#include "addon/wrapper/tessel_wrapper.h"

Napi::Value TesselWrapper::getFrame(const Napi::CallbackInfo& info) {
  napiCheckArgLength(info, 2);
  const StreamKey key = Utils::getStreamInfo(info);
  const std::int64_t frameId = napiGetArgAsInt64(info, 1);
  VideoFrame frame;
  streamManager->getFrame(key, frameId, frame);
  if (frame.noUpdate) return frameObjects.initFrame(key, frame, frame.frame, retainedPlanes);
  // A picture has come, so what was lent of the one before it is no longer kept alive.
  clearPlanes.takeBack(key);
  if (frame.clearFrame) return frameObjects.initFrame(key, frame, frame.frame, clearPlanes);
  retainedPlanes.takeBack(key);
  return frameObjects.initFrame(key, frame, frame.frame, retainedPlanes);
}

Napi::Value TesselWrapper::getLastFrame(const Napi::CallbackInfo& info) {
  napiCheckArgLength(info, 1);
  const StreamKey key = Utils::getStreamInfo(info);
  VideoFrame frame;
  streamManager->getLastFrame(key, frame);
  return frameObjects.initFrame(key, frame, frame.frame, retainedPlanes);
}

// Frames are given back by asking for the next one.
void TesselWrapper::releaseFrame(const Napi::CallbackInfo&) {}
