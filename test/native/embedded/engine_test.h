// An engine on a clock that the test drives, and the notifications that it gave.

#ifndef TEST_NATIVE_EMBEDDED_ENGINE_TEST_H_
#define TEST_NATIVE_EMBEDDED_ENGINE_TEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "engine/embedded/card_code.h"
#include "engine/embedded/embedded_manager.h"
#include "test/native/embedded/manual_clock.h"

namespace embedded {

// Writes each notification down as a line, and the microphone's levels apart. May be called from
// any thread.
class NotificationRecorder final : public INotifyCallback {
 public:
  // The lines since the last call.
  std::vector<std::string> takeLines() {
    base::MutexLock lock(mutex_);
    return std::exchange(lines_, {});
  }
  std::vector<unsigned> takeLevels() {
    base::MutexLock lock(mutex_);
    return std::exchange(levels_, {});
  }

  void NotifyInitCompleted() override { add("initialised"); }
  void NotifyStreamAdded(StreamKey stream, unsigned csrc) override {
    add("added " + text(stream, csrc));
  }
  void NotifyStreamRemoved(StreamKey stream, unsigned csrc) override {
    add("removed " + text(stream, csrc));
  }
  void NotifyStreamUpdated(StreamKey stream, unsigned csrc) override {
    add("updated " + text(stream, csrc));
  }
  void NotifyGracefulEvent(std::string event, bool enable) override {
    add("graceful " + event + flag(enable));
  }
  void NotifyCallConnectionStatus(bool connected) override {
    add(connected ? "connected" : "not connected");
  }
  void NotifyScreenShareStatus(ShareStatus status) override {
    add("share " + std::to_string(static_cast<int>(status)));
  }
  void NotifyContentReceiveStatus(bool isReceiving, std::string presenterGuid) override {
    add("content " + presenterGuid + flag(isReceiving));
  }
  void NotifyCallDisconnect(int callId, std::string reason, int code) override {
    add("disconnect " + std::to_string(callId) + ' ' + std::to_string(code) + ' ' + reason);
  }
  void NotifyMediaMuteState(MediaType type, bool muted) override {
    add("mute " + std::to_string(static_cast<int>(type)) + flag(muted));
  }
  void NotifyMicLevel(unsigned level) override {
    base::MutexLock lock(mutex_);
    levels_.push_back(level);
  }
  void NotifyRtpMediaState(MediaType type, bool up) override {
    add("media " + std::to_string(static_cast<int>(type)) + flag(up));
  }
  void NotifyDeviceChange(std::string id, DeviceType type) override {
    add("device " + id + ' ' + std::to_string(static_cast<int>(type)));
  }
  void NotifyEvent(const std::string& eventName, const std::string& eventBody) override {
    add("event " + eventName + ' ' + eventBody);
  }
  void NotifyUpdateVOQualityIndex(VSPVoQualityIndex index) override {
    add("quality " + std::to_string(static_cast<int>(index)));
  }

 private:
  static std::string flag(bool value) { return value ? " on" : " off"; }
  static std::string text(const StreamKey& key, unsigned csrc) {
    const std::string kind = key.first == TSLM_STREAM_LOCAL    ? "local "
                             : key.first == TSLM_STREAM_REMOTE ? "remote "
                                                               : "content ";
    return kind + std::to_string(key.second) + (csrc == 0 ? " without csrc" : "");
  }

  void add(std::string line) {
    base::MutexLock lock(mutex_);
    lines_.push_back(std::move(line));
  }

  base::Mutex mutex_;
  std::vector<std::string> lines_ GUARDED_BY(mutex_);
  std::vector<unsigned> levels_ GUARDED_BY(mutex_);
};

// Does nothing. For tests that care about few notifications.
class SilentCallback : public INotifyCallback {
 public:
  void NotifyInitCompleted() override {}
  void NotifyStreamAdded(StreamKey, unsigned) override {}
  void NotifyStreamRemoved(StreamKey, unsigned) override {}
  void NotifyStreamUpdated(StreamKey, unsigned) override {}
  void NotifyGracefulEvent(std::string, bool) override {}
  void NotifyCallConnectionStatus(bool) override {}
  void NotifyScreenShareStatus(ShareStatus) override {}
  void NotifyContentReceiveStatus(bool, std::string) override {}
  void NotifyCallDisconnect(int, std::string, int) override {}
  void NotifyMediaMuteState(MediaType, bool) override {}
  void NotifyMicLevel(unsigned) override {}
  void NotifyRtpMediaState(MediaType, bool) override {}
  void NotifyDeviceChange(std::string, DeviceType) override {}
  void NotifyEvent(const std::string&, const std::string&) override {}
  void NotifyUpdateVOQualityIndex(VSPVoQualityIndex) override {}
};

class EngineTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  EngineTest() {
    manager_->RegisterNotifyCallback(recorder_);
    manager_->Initialize();
    pass(Time(0));
    recorder_->takeLines();
  }

  void pass(Time span) { clock_->pass(span, manager_->engine()->loop()); }

  // Joins at once.
  void connect(const std::string& uri) { connect(uri, openState()); }
  void connect(const std::string& uri, const tsl::MediaStreamState& state) {
    tsl::ConnectParams params;
    params.uri = uri;
    params.mediaStreamState = state;
    connect(params);
  }
  void connect(const tsl::ConnectParams& params) {
    manager_->ConnectCall(params);
    pass(Time(0));
  }

  static tsl::MediaStreamState openState() { return {false, false, true, true, true}; }

  Lines takeLines() { return recorder_->takeLines(); }

  VideoFrame frameOf(const StreamKey& key, std::uint32_t lastId = 0) {
    VideoFrame frame;
    const auto stream = manager_->GetFrameManager(key);
    if (!stream) throw std::logic_error("no such stream");
    stream->GetFrame(lastId, frame);
    return frame;
  }

  static std::optional<CardCode> codeOf(const VideoFrame& frame) {
    if (frame.noUpdate) return std::nullopt;
    return readCode({frame.width, frame.height}, frame.yPlane.data);
  }

  const std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  const std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>(std::size_t{16} << 20);
  const std::shared_ptr<NotificationRecorder> recorder_ = std::make_shared<NotificationRecorder>();
  const std::unique_ptr<EmbeddedManager> manager_ =
      std::make_unique<EmbeddedManager>(tsl::CreateParams(), clock_, pool_);
};

}  // namespace embedded

#endif  // TEST_NATIVE_EMBEDDED_ENGINE_TEST_H_
