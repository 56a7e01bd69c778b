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

// Takes the class of the planes' arrays and makes the function that builds the frames.
constexpr const char* kMakePicture = R"((Uint8Array) => (clearFrame, frameId, csrc, width, height,
    y, yWidth, yHeight, ySize, yStride,
    u, uWidth, uHeight, uSize, uStride,
    v, vWidth, vHeight, vSize, vStride) => ({
  noUpdate: false, clearFrame, frameId, csrc, width, height,
  yPlaneBuffer: new Uint8Array(y), yPlaneBufferWidth: yWidth, yPlaneBufferHeight: yHeight,
  yPlaneBufferSize: ySize, yPlaneBufferStride: yStride,
  uPlaneBuffer: new Uint8Array(u), uPlaneBufferWidth: uWidth, uPlaneBufferHeight: uHeight,
  uPlaneBufferSize: uSize, uPlaneBufferStride: uStride,
  vPlaneBuffer: new Uint8Array(v), vPlaneBufferWidth: vWidth, vPlaneBufferHeight: vHeight,
  vPlaneBufferSize: vSize, vPlaneBufferStride: vStride,
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

// The real class, also where the application has put something else in the place of the global.
Napi::Value uint8Array(Napi::Env env) {
  napi_value buffer = nullptr;
  napi_value array = nullptr;
  napi_value arrayClass = nullptr;
  napi::checkStatus(env, napi_create_arraybuffer(env, 0, nullptr, &buffer));
  napi::checkStatus(env, napi_create_typedarray(env, napi_uint8_array, 0, buffer, 0, &array));
  napi::checkStatus(env, napi_get_named_property(env, array, "constructor", &arrayClass));
  return {env, arrayClass};
}

}  // namespace

FrameObjects::FrameObjects(Napi::Env env)
    : makeHeader_(evaluate(env, kMakeHeader)),
      makePicture_(Napi::Persistent(
          call<1>(evaluate(env, kMakePicture), {uint8Array(env)}).As<Napi::Function>())) {}

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
    *argument++ = *buffer++;
    for (const std::uint32_t number : {plane.width, plane.height, plane.size, plane.stride}) {
      *argument++ = toJavascript(env, number);
    }
  }
  return call(makePicture_, arguments);
}

}  // namespace frames
