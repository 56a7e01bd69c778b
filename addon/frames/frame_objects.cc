#include "addon/frames/frame_objects.h"

#include <array>
#include <utility>

#include "addon/napi/status.h"
#include "addon/napi/values.h"

using napi::toJavascript;

namespace frames {
namespace {

constexpr const char* kMakeHeader =
    "(noUpdate, clearFrame, frameId, csrc) => ({ noUpdate, clearFrame, frameId, csrc })";

constexpr const char* kMakePicture = R"((clearFrame, frameId, csrc, width, height,
    yPlaneBuffer, yPlaneBufferWidth, yPlaneBufferHeight, yPlaneBufferSize, yPlaneBufferStride,
    uPlaneBuffer, uPlaneBufferWidth, uPlaneBufferHeight, uPlaneBufferSize, uPlaneBufferStride,
    vPlaneBuffer, vPlaneBufferWidth, vPlaneBufferHeight, vPlaneBufferSize, vPlaneBufferStride,
) => ({
  noUpdate: false, clearFrame, frameId, csrc, width, height,
  yPlaneBuffer, yPlaneBufferWidth, yPlaneBufferHeight, yPlaneBufferSize, yPlaneBufferStride,
  uPlaneBuffer, uPlaneBufferWidth, uPlaneBufferHeight, uPlaneBufferSize, uPlaneBufferStride,
  vPlaneBuffer, vPlaneBufferWidth, vPlaneBufferHeight, vPlaneBufferSize, vPlaneBufferStride,
}))";

Napi::FunctionReference evaluate(Napi::Env env, const char* source) {
  napi_value function = nullptr;
  napi::checkStatus(env, napi_run_script(env, toJavascript(env, source), &function));
  return Napi::Persistent(Napi::Function(env, function));
}

template <std::size_t count>
Napi::Object call(const Napi::FunctionReference& function,
                  const std::array<napi_value, count>& arguments) {
  const Napi::Env env = function.Env();
  napi_value result = nullptr;
  napi::checkStatus(env, napi_call_function(env, env.Undefined(), function.Value(), count,
                                            arguments.data(), &result));
  return {env, result};
}

napi_value frameIdOf(Napi::Env env, const VideoFrame& frame) {
  return toJavascript(env, static_cast<double>(frame.frameId));
}

// Node-API's own Uint8Array, whatever the application has put in the place of the class.
napi_value uint8ArrayOver(Napi::Env env, napi_value buffer, const VideoPlane& plane) {
  const std::size_t length = plane.data == nullptr ? 0 : plane.size;
  napi_value array = nullptr;
  napi::checkStatus(env, napi_create_typedarray(env, napi_uint8_array, length, buffer, 0, &array));
  return array;
}

}  // namespace

FrameObjects::FrameObjects(Napi::Env env)
    : makeHeader_(evaluate(env, kMakeHeader)), makePicture_(evaluate(env, kMakePicture)) {}

Napi::Object FrameObjects::initHeader(const VideoFrame& frame) const {
  const Napi::Env env = makeHeader_.Env();
  return call<4>(makeHeader_,
                 {toJavascript(env, frame.noUpdate), toJavascript(env, frame.clearFrame),
                  frameIdOf(env, frame), toJavascript(env, frame.csrc)});
}

Napi::Object FrameObjects::initNullFrame() const {
  VideoFrame frame;
  frame.noUpdate = true;
  return initHeader(frame);
}

Napi::Object FrameObjects::initFrame(const StreamKey& key, const VideoFrame& frame,
                                     std::shared_ptr<const void> memory,
                                     LentPlanes& lentPlanes) const {
  if (frame.noUpdate) return initHeader(frame);
  const Napi::Env env = makePicture_.Env();
  const LentPlanes::Buffers buffers = lentPlanes.lend(env, key, frame, std::move(memory));
  std::array<napi_value, 20> arguments = {
      toJavascript(env, frame.clearFrame), frameIdOf(env, frame), toJavascript(env, frame.csrc),
      toJavascript(env, frame.width), toJavascript(env, frame.height)};
  auto argument = arguments.begin() + 5;
  auto buffer = buffers.begin();
  for (const VideoPlane& plane : {frame.yPlane, frame.uPlane, frame.vPlane}) {
    *argument++ = uint8ArrayOver(env, *buffer++, plane);
    for (const std::uint32_t number : {plane.width, plane.height, plane.size, plane.stride}) {
      *argument++ = toJavascript(env, number);
    }
  }
  return call(makePicture_, arguments);
}

}  // namespace frames
