#include "addon/frames/stream_manager.h"

#include <utility>

#include "base/diagnostic_line.h"

namespace frames {
namespace {

// The answer for a stream without a frame: the receiver clears its picture.
VideoFrame absentFrame() {
  VideoFrame frame;
  frame.noUpdate = true;
  frame.clearFrame = true;
  return frame;
}

}  // namespace

StreamManager::StreamManager(std::shared_ptr<TSLM::TSLMManager> engine)
    : engine_(std::move(engine)) {}

void StreamManager::enableFrameCapture(const StreamKey& key) {
  if (const auto frameManager = engine_->GetFrameManager(key)) frameManager->EnableFrameCapture();
}

void StreamManager::disableFrameCapture(const StreamKey& key) {
  if (const auto frameManager = engine_->GetFrameManager(key)) frameManager->DisableFrameCapture();
}

void StreamManager::releaseFrame(const StreamKey& key, std::int64_t frameId) {
  if (const auto frameManager = engine_->GetFrameManager(key)) frameManager->ReleaseFrame(frameId);
}

void StreamManager::getFrame(const StreamKey& key, std::int64_t frameId, VideoFrame& frame) {
  const auto frameManager = engine_->GetFrameManager(key);
  if (!frameManager) {
    frame = absentFrame();
    return;
  }
  frameManager->GetFrame(static_cast<std::uint32_t>(frameId), frame);
  if (frame.noUpdate || frame.clearFrame) return;
  lastFrames_[key] = frame;
}

void StreamManager::getLastFrame(const StreamKey& key, VideoFrame& frame) const {
  const auto last = lastFrames_.find(key);
  frame = last == lastFrames_.end() ? absentFrame() : last->second;
}

bool StreamManager::registerFrameReciever(const StreamKey& key,
                                          std::shared_ptr<IFrameRecieveCallback> receiver) {
  return setFrameReceiver("registerFrameReciever", key, std::move(receiver));
}

bool StreamManager::unregisterFrameReciever(const StreamKey& key) {
  return setFrameReceiver("unregisterFrameReciever", key, nullptr);
}

bool StreamManager::setFrameReceiver(const char* operation, const StreamKey& key,
                                     std::shared_ptr<IFrameRecieveCallback> receiver) {
  const auto frameManager = engine_->GetFrameManager(key);
  if (!frameManager) {
    base::DiagnosticLine(operation)
        .text(": Frame handler pointer not found for stream key:")
        .dec(static_cast<std::int32_t>(key.first))
        .text(", index:")
        .dec(key.second);
    return false;
  }
  frameManager->SetFrameReceiver(std::move(receiver));
  return true;
}

}  // namespace frames
