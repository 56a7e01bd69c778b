// Frames as JavaScript sees them.

#ifndef ADDON_FRAMES_FRAME_OBJECTS_H_
#define ADDON_FRAMES_FRAME_OBJECTS_H_

#include <napi.h>

#include <memory>

#include "addon/frames/lent_planes.h"
#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

namespace frames {

// Builds the frame objects of one environment. The properties and their order are fixed: noUpdate,
// clearFrame, frameId, csrc, and with a picture also width, height and, for each of the planes y, u
// and v, <plane>PlaneBuffer (Uint8Array), <plane>PlaneBufferWidth, -Height, -Size and -Stride.
//
// JavaScript functions build the objects: one call from native code with all values costs a third
// of setting the properties one by one, and all frames share one hidden class.
//
// Owned by a TesselWrapper or a TesselWrapperProxy; JavaScript thread only. Failures of Node-API
// throw a Napi::Error.
class FrameObjects {
 public:
  explicit FrameObjects(Napi::Env env);

  // A frame without a picture (noUpdate) has the first four properties and no others. The planes of
  // one with a picture, in memory that `memory` owns, are lent through `lentPlanes`.
  Napi::Object initFrame(const StreamKey& key, const VideoFrame& frame,
                         std::shared_ptr<const void> memory, LentPlanes& lentPlanes) const;

  // The frame of a stream that cannot be found: noUpdate true, clearFrame false, frameId 0, csrc 0.
  Napi::Object initNullFrame() const;

 private:
  Napi::Object initHeader(const VideoFrame& frame) const;

  Napi::FunctionReference makeHeader_;
  Napi::FunctionReference makePicture_;
};

}  // namespace frames

#endif  // ADDON_FRAMES_FRAME_OBJECTS_H_
