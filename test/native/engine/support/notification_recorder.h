// Notification callbacks for tests.

#ifndef TEST_NATIVE_ENGINE_SUPPORT_NOTIFICATION_RECORDER_H_
#define TEST_NATIVE_ENGINE_SUPPORT_NOTIFICATION_RECORDER_H_

#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "tesselclient/notify_callback.h"

namespace support {

// Records each notification as a line, and the microphone's levels separately. May be called from
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

}  // namespace support

#endif  // TEST_NATIVE_ENGINE_SUPPORT_NOTIFICATION_RECORDER_H_
