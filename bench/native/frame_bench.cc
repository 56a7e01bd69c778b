// What the frame benchmark loads: one stream that has a fresh 1280x720 picture whenever it is
// asked, and three ways for JavaScript to get at the pixels.

#include <napi.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

#include "addon/frames/frame_objects.h"
#include "addon/frames/lent_planes.h"
#include "addon/frames/stream_manager.h"
#include "addon/napi/arguments.h"
#include "addon/napi/status.h"
#include "addon/napi/values.h"
#include "addon/utils/stream_key_argument.h"
#include "bench/native/picture.h"
#include "test/native/support/idle_engine.h"

using frames::FrameObjects;
using frames::LentPlanes;
using frames::StreamManager;
using napi::napiGetArgAsInt64;

namespace {

// Hands out a pool of pictures in turn, as a decoder does.
class Pictures : public IFrameManager {
 public:
  Pictures() {
    for (std::size_t i = 0; i < pool_.size(); ++i) {
      pool_[i] = std::make_shared<Picture>(static_cast<std::uint8_t>(i));
    }
  }

  void GetFrame(std::uint32_t frameId, VideoFrame& frame) override {
    frame.frameId = frameId + 1;
    frame.csrc = 7;
    frame.frame = pool_[frame.frameId % pool_.size()];
    frame.width = Picture::kWidth;
    frame.height = Picture::kHeight;
    const std::uint8_t* const pixels = frame.frame->frameBuffer();
    frame.yPlane = {pixels, Picture::kWidth, Picture::kHeight, Picture::kLumaSize, Picture::kWidth};
    frame.uPlane = {pixels + Picture::kLumaSize, Picture::kWidth / 2, Picture::kHeight / 2,
                    Picture::kChromaSize, Picture::kWidth / 2};
    frame.vPlane = frame.uPlane;
    frame.vPlane.data += Picture::kChromaSize;
  }
  void ReleaseFrame(std::int64_t) override {}
  void EnableFrameCapture() override {}
  void DisableFrameCapture() override {}
  void SetFrameReceiver(std::shared_ptr<IFrameRecieveCallback>) override {}

 private:
  std::array<std::shared_ptr<Picture>, 8> pool_;
};

// An engine of one stream, of which nothing but its frames is asked.
class Engine : public test::IdleEngine {
 public:
  std::shared_ptr<IFrameManager> GetFrameManager(const StreamKey&) override { return pictures_; }

 private:
  std::shared_ptr<Pictures> pictures_ = std::make_shared<Pictures>();
};

struct Bench {
  explicit Bench(Napi::Env env) : frameObjects(env) {}

  // The frame behind the one of argument 1 of the stream of argument 0, which goes to `key`.
  VideoFrame next(const Napi::CallbackInfo& info, StreamKey& key) {
    key = Utils::getStreamInfo(info);
    VideoFrame frame;
    streamManager.getFrame(key, napiGetArgAsInt64(info, 1), frame);
    return frame;
  }

  StreamManager streamManager{std::make_shared<Engine>()};
  FrameObjects frameObjects;
  LentPlanes lentPlanes;
};
Bench* bench;  // for the length of the process

// getFrame(stream, frameId), as the wrapper does it.
Napi::Value getFrame(const Napi::CallbackInfo& info) {
  StreamKey key;
  const VideoFrame frame = bench->next(info, key);
  bench->lentPlanes.takeBack(key);
  return bench->frameObjects.initFrame(key, frame, frame.frame, bench->lentPlanes);
}

// copyFrame(stream, frameId, buffer): copies the pixels into the caller's buffer and answers with
// the frame's identifier.
Napi::Value copyFrame(const Napi::CallbackInfo& info) {
  StreamKey key;
  const VideoFrame frame = bench->next(info, key);
  std::uint8_t* target = info[2].As<Napi::Uint8Array>().Data();
  for (const VideoPlane& plane : {frame.yPlane, frame.uPlane, frame.vPlane}) {
    target = std::copy_n(plane.data, plane.size, target);
  }
  return Napi::Number::New(info.Env(), static_cast<double>(frame.frameId));
}

// getFreshFrame(stream, frameId): the object of getFrame(), made in the obvious way: each property
// set natively, and fresh external buffers, which are left to the collector.
Napi::Value getFreshFrame(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  StreamKey key;
  const VideoFrame frame = bench->next(info, key);
  const Napi::Object object = Napi::Object::New(env);
  object.Set("noUpdate", frame.noUpdate);
  object.Set("clearFrame", frame.clearFrame);
  object.Set("frameId", static_cast<double>(frame.frameId));
  object.Set("csrc", frame.csrc);
  object.Set("width", frame.width);
  object.Set("height", frame.height);
  const std::array<const char*, 3> names = {"yPlaneBuffer", "uPlaneBuffer", "vPlaneBuffer"};
  const std::array planes = {frame.yPlane, frame.uPlane, frame.vPlane};
  for (std::size_t i = 0; i < planes.size(); ++i) {
    const VideoPlane& plane = planes[i];
    const std::string name = names[i];
    const auto buffer =
        Napi::ArrayBuffer::New(env, const_cast<std::uint8_t*>(plane.data), plane.size);
    object.Set(name, Napi::Uint8Array::New(env, plane.size, buffer, 0));
    object.Set(name + "Width", plane.width);
    object.Set(name + "Height", plane.height);
    object.Set(name + "Size", plane.size);
    object.Set(name + "Stride", plane.stride);
  }
  return object;
}

Napi::Object initialise(Napi::Env env, Napi::Object exports) {
  bench = new Bench(env);
  exports["frameSize"] = Napi::Number::New(env, Picture::kSize);
  exports["getFrame"] = Napi::Function::New(env, getFrame);
  exports["copyFrame"] = Napi::Function::New(env, copyFrame);
  exports["getFreshFrame"] = Napi::Function::New(env, getFreshFrame);
  return exports;
}

NODE_API_MODULE(frame_bench, initialise)

}  // namespace
