// A client of the engine's interface that a test drives by operation names: it replaces the addon's
// wrapper, so that the engine can be tested against its interface.

#ifndef TEST_ENGINE_ENGINE_CLIENT_H_
#define TEST_ENGINE_ENGINE_CLIENT_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "tesselclient/tesselclient.h"
#include "test/engine/conversion.h"
#include "test/engine/value.h"

namespace scripted {

// One notification that arrived.
struct Arrived {
  std::string notification;
  Array args;
  std::int64_t thread = 0;
};

// One frame that arrived.
struct ArrivedFrame {
  Value key;
  std::uint32_t csrc = 0;
  bool empty = false;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t valueA = 0;
  std::uint32_t valueB = 0;
  std::uint32_t valueC = 0;
  std::uint64_t bufferSize = 0;
  Value bytes;  // absent for a null buffer
  std::int64_t thread = 0;
};

// Records the notifications. Any thread.
class NotificationLog final : public INotifyCallback {
 public:
  std::vector<Arrived> take() EXCLUDES(mutex_);
  // Blocks until so many notifications of the name are there.
  void await(const std::string& notification, std::uint32_t count) EXCLUDES(mutex_);

  // Owners share the log through this: it records the thread that releases the last share.
  static std::shared_ptr<INotifyCallback> shared(std::shared_ptr<NotificationLog> log);
  // 0 while there are owners, or never were.
  std::int64_t letGoOnThread() const { return letGoOnThread_; }

  void NotifyInitCompleted() override;
  void NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) override;
  void NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) override;
  void NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) override;
  void NotifyGracefulEvent(std::string event, bool enable) override;
  void NotifyCallConnectionStatus(bool connected) override;
  void NotifyScreenShareStatus(ShareStatus status) override;
  void NotifyContentReceiveStatus(bool isReceiving, std::string presenterGuid) override;
  void NotifyCallDisconnect(int callId, std::string reason, int code) override;
  void NotifyMediaMuteState(MediaType type, bool muted) override;
  void NotifyMicLevel(unsigned int level) override;
  void NotifyRtpMediaState(MediaType type, bool up) override;
  void NotifyDeviceChange(std::string id, DeviceType type) override;
  void NotifyEvent(const std::string& eventName, const std::string& eventBody) override;
  void NotifyUpdateVOQualityIndex(VSPVoQualityIndex index) override;

 private:
  void arrived(const char* notification, Array args = {}) EXCLUDES(mutex_);

  std::atomic<std::int64_t> letGoOnThread_ = 0;

  base::Mutex mutex_;
  base::CondVar changed_;
  std::vector<Arrived> log_ GUARDED_BY(mutex_);
};

// Records the frames, with a copy of their bytes. Any thread.
class FrameLog final : public IFrameRecieveCallback {
 public:
  // How long the receiver takes for a frame.
  explicit FrameLog(std::uint32_t frameMs) : frameMs_(frameMs) {}

  std::vector<ArrivedFrame> take() EXCLUDES(mutex_);
  std::uint32_t deliveriesUnderWay() EXCLUDES(mutex_);
  std::uint32_t mostDeliveriesAtOnce() EXCLUDES(mutex_);
  // Block until a delivery is under way, or so many have ended since the last take().
  void awaitDelivery() EXCLUDES(mutex_);
  void await(std::uint32_t count) EXCLUDES(mutex_);

  void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame, unsigned int csrc,
                          const StreamKey& key) override;

 private:
  const std::uint32_t frameMs_;

  base::Mutex mutex_;
  base::CondVar changed_;
  std::vector<ArrivedFrame> log_ GUARDED_BY(mutex_);
  std::uint32_t underWay_ GUARDED_BY(mutex_) = 0;
  std::uint32_t mostAtOnce_ GUARDED_BY(mutex_) = 0;
};

// Facades, with their callbacks and receivers, by handles. JavaScript thread only.
class EngineClient {
 public:
  // Answers with a handle; 0 when the engine gives no facade.
  std::int64_t create(tsl::CreateParams params);
  void deleteFacade(std::int64_t facade);
  void destroyAll();  // TSLMManager::DestroyTSLMManager
  // Calls an operation of the facade, of its configuration, or of one of its frame managers.
  Value call(std::int64_t facade, std::string operation, Array args);
  Value callConfigData(std::int64_t facade, std::string operation, Array args);
  Value callFrameManager(std::int64_t facade, StreamKey key, std::string operation, Array args);

  void registerCallback(std::int64_t facade, bool registered);
  void awaitNotifications(std::string notification, std::uint32_t count);
  std::vector<Arrived> takeNotifications();

  // The facade's frame of the stream, with copies of its planes' bytes. The client keeps the frame
  // until it gets the next one or releases it.
  Value getFrame(std::int64_t facade, StreamKey key, std::uint32_t newestId);
  void releaseFrame();

  // Attaches the one receiver, or detaches it.
  void setReceiver(std::int64_t facade, StreamKey key, bool attached);
  void setFrameMs(std::uint32_t frameMs);
  std::uint32_t deliveriesUnderWay();
  std::uint32_t mostDeliveriesAtOnce();
  void awaitDelivery();
  void awaitFrames(std::uint32_t count);
  std::vector<ArrivedFrame> takeFrames();
  // The thread on which the engine released the callback; 0 while it holds it.
  std::int64_t callbackLetGoOnThread();
  // Owners other than the client.
  std::int64_t receiverOwners();

  // Releases everything.
  void reset();

 private:
  TSLM::TSLMManager& facadeOf(std::int64_t handle);
  std::shared_ptr<IFrameManager> frameManagerOf(std::int64_t facade, const StreamKey& key);

  std::map<std::int64_t, std::unique_ptr<TSLM::TSLMManager>> facades_;
  std::int64_t lastHandle_ = 0;
  std::shared_ptr<NotificationLog> notifications_ = std::make_shared<NotificationLog>();
  std::shared_ptr<FrameLog> frames_ = std::make_shared<FrameLog>(0);
  VideoFrame lastFrame_;
};

template <>
struct Fields<Arrived> {
  static void list(auto& record, auto&& field) {
    LISTED(notification);
    LISTED(args);
    LISTED(thread);
  }
};

template <>
struct Fields<ArrivedFrame> {
  static void list(auto& record, auto&& field) {
    LISTED(key);
    LISTED(csrc);
    LISTED(empty);
    LISTED(width);
    LISTED(height);
    LISTED(valueA);
    LISTED(valueB);
    LISTED(valueC);
    LISTED(bufferSize);
    LISTED(bytes);
    LISTED(thread);
  }
};

}  // namespace scripted

#endif  // TEST_ENGINE_ENGINE_CLIENT_H_
