#include "test/engine/engine_client.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

namespace scripted {
namespace {

using TSLM::TSLMManager;

template <typename Object>
using Methods = std::map<std::string, Method<Object>, std::less<>>;

#define METHOD(type, name) \
  { #name, byValues(&type::name) }

const Methods<TSLMManager>& facadeMethods() {
  static const Methods<TSLMManager> byName = {
      METHOD(TSLMManager, Initialize),
      METHOD(TSLMManager, DeInitialize),
      METHOD(TSLMManager, ConnectCall),
      METHOD(TSLMManager, DisconnectCall),
      METHOD(TSLMManager, MuteLocalVideo),
      METHOD(TSLMManager, MuteLocalAudio),
      METHOD(TSLMManager, SetRemoteAudioMute),
      METHOD(TSLMManager, EnableCameraCapture),
      METHOD(TSLMManager, SetAudioDebug),
      METHOD(TSLMManager, UpdateMediaStreamState),
      METHOD(TSLMManager, SetAudioInDevice),
      METHOD(TSLMManager, SetAudioOutDevice),
      METHOD(TSLMManager, SetVideoDevice),
      METHOD(TSLMManager, SelectDevices),
      METHOD(TSLMManager, SendAudioDeviceStats),
      METHOD(TSLMManager, StartPresentation),
      METHOD(TSLMManager, StopPresentation),
      METHOD(TSLMManager, RequestContentShareToken),
      METHOD(TSLMManager, ReleaseContentShareToken),
      METHOD(TSLMManager, GetScreenMonitorDetails),
      METHOD(TSLMManager, UpdateVideoStreamsState),
      METHOD(TSLMManager, ConfigureMeetingStats),
      METHOD(TSLMManager, GetRequiredMeetingAttributes),
      METHOD(TSLMManager, RegisterEvent),
      METHOD(TSLMManager, UnregisterEvent),
      {"GetMeetingStats",
       [](TSLMManager& facade, const Array&) {
         tsl::MeetingStats stats;
         facade.GetMeetingStats(stats);
         return toValue(stats);
       }},
      {"GetConfigDataPtr",
       [](TSLMManager& facade, const Array&) { return toValue(facade.GetConfigDataPtr()); }},
      {"GetFrameManager",
       [](TSLMManager& facade, const Array& args) {
         const auto [key] = argumentsFrom<StreamKey>(args);
         return toValue(facade.GetFrameManager(key));
       }},
  };
  return byName;
}

const Methods<ConfigData>& configDataMethods() {
  static const Methods<ConfigData> byName = {
      METHOD(ConfigData, isVesperCapable),
      METHOD(ConfigData, maxVOQualityIndex),
      METHOD(ConfigData, update),
  };
  return byName;
}

const Methods<IFrameManager>& frameManagerMethods() {
  static const Methods<IFrameManager> byName = {
      METHOD(IFrameManager, ReleaseFrame),        METHOD(IFrameManager, EnableFrameCapture),
      METHOD(IFrameManager, DisableFrameCapture), METHOD(IFrameManager, ReservedSlot6),
      METHOD(IFrameManager, ReservedSlot7),
  };
  return byName;
}

#undef METHOD

template <typename Object>
Value callByName(const Methods<Object>& methods, Object& object, const std::string& name,
                 const Array& args) {
  const auto found = methods.find(name);
  if (found == methods.end()) throw std::invalid_argument("there is no operation " + name);
  return found->second(object, args);
}

Value planeValue(const VideoPlane& plane, bool readable) {
  Record fields = {named("width", plane.width), named("height", plane.height),
                   named("size", plane.size), named("stride", plane.stride)};
  if (readable && plane.data != nullptr) {
    fields.push_back({"bytes", {Bytes(plane.data, plane.data + plane.size)}});
  }
  return {std::move(fields)};
}

}  // namespace

// ---- NotificationLog

std::vector<Arrived> NotificationLog::take() {
  base::MutexLock lock(mutex_);
  return std::exchange(log_, {});
}

void NotificationLog::await(const std::string& notification, std::uint32_t count) {
  base::MutexLock lock(mutex_);
  while (std::ranges::count(log_, notification, &Arrived::notification) < count) {
    changed_.Wait(mutex_);
  }
}

void NotificationLog::arrived(const char* notification, Array args) {
  base::MutexLock lock(mutex_);
  log_.push_back({notification, std::move(args), ::gettid()});
  changed_.NotifyAll();
}

std::shared_ptr<INotifyCallback> NotificationLog::shared(std::shared_ptr<NotificationLog> log) {
  log->letGoOnThread_ = 0;
  NotificationLog* callback = log.get();
  return {callback, [log = std::move(log)](INotifyCallback*) { log->letGoOnThread_ = ::gettid(); }};
}

void NotificationLog::NotifyInitCompleted() { arrived("NotifyInitCompleted"); }
void NotificationLog::NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int> stream,
                                        unsigned int csrc) {
  arrived("NotifyStreamAdded", {toValue(stream), toValue(csrc)});
}
void NotificationLog::NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int> stream,
                                          unsigned int csrc) {
  arrived("NotifyStreamRemoved", {toValue(stream), toValue(csrc)});
}
void NotificationLog::NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int> stream,
                                          unsigned int csrc) {
  arrived("NotifyStreamUpdated", {toValue(stream), toValue(csrc)});
}
void NotificationLog::NotifyGracefulEvent(std::string event, bool enable) {
  arrived("NotifyGracefulEvent", {toValue(event), toValue(enable)});
}
void NotificationLog::NotifyCallConnectionStatus(bool connected) {
  arrived("NotifyCallConnectionStatus", {toValue(connected)});
}
void NotificationLog::NotifyScreenShareStatus(ShareStatus status) {
  arrived("NotifyScreenShareStatus", {toValue(status)});
}
void NotificationLog::NotifyContentReceiveStatus(bool isReceiving, std::string presenterGuid) {
  arrived("NotifyContentReceiveStatus", {toValue(isReceiving), toValue(presenterGuid)});
}
void NotificationLog::NotifyCallDisconnect(int callId, std::string reason, int code) {
  arrived("NotifyCallDisconnect", {toValue(callId), toValue(reason), toValue(code)});
}
void NotificationLog::NotifyMediaMuteState(MediaType type, bool muted) {
  arrived("NotifyMediaMuteState", {toValue(type), toValue(muted)});
}
void NotificationLog::NotifyMicLevel(unsigned int level) {
  arrived("NotifyMicLevel", {toValue(level)});
}
void NotificationLog::NotifyRtpMediaState(MediaType type, bool up) {
  arrived("NotifyRtpMediaState", {toValue(type), toValue(up)});
}
void NotificationLog::NotifyDeviceChange(std::string id, DeviceType type) {
  arrived("NotifyDeviceChange", {toValue(id), toValue(type)});
}
void NotificationLog::NotifyEvent(const std::string& eventName, const std::string& eventBody) {
  arrived("NotifyEvent", {toValue(eventName), toValue(eventBody)});
}
void NotificationLog::NotifyUpdateVOQualityIndex(VSPVoQualityIndex index) {
  arrived("NotifyUpdateVOQualityIndex", {toValue(index)});
}

// ---- FrameLog

std::vector<ArrivedFrame> FrameLog::take() {
  base::MutexLock lock(mutex_);
  return std::exchange(log_, {});
}

std::uint32_t FrameLog::deliveriesUnderWay() {
  base::MutexLock lock(mutex_);
  return underWay_;
}

std::uint32_t FrameLog::mostDeliveriesAtOnce() {
  base::MutexLock lock(mutex_);
  return mostAtOnce_;
}

void FrameLog::awaitDelivery() {
  base::MutexLock lock(mutex_);
  while (underWay_ == 0) changed_.Wait(mutex_);
}

void FrameLog::await(std::uint32_t count) {
  base::MutexLock lock(mutex_);
  while (log_.size() < count) changed_.Wait(mutex_);
}

void FrameLog::NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame, unsigned int csrc,
                                  const StreamKey& key) {
  {
    base::MutexLock lock(mutex_);
    ++underWay_;
    mostAtOnce_ = std::max(mostAtOnce_, underWay_);
    changed_.NotifyAll();
  }
  ArrivedFrame arrived;
  arrived.key = toValue(key);
  arrived.csrc = csrc;
  arrived.empty = frame == nullptr;
  arrived.thread = ::gettid();
  if (frame != nullptr) {
    arrived.width = frame->frameWidth();
    arrived.height = frame->frameHeight();
    arrived.valueA = frame->frameValueA();
    arrived.valueB = frame->frameValueB();
    arrived.valueC = frame->frameValueC();
    arrived.bufferSize = frame->frameBufferSize();
    const std::uint8_t* start = frame->frameBuffer();
    if (start != nullptr) arrived.bytes = {Bytes(start, start + frame->frameBufferSize())};
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(frameMs_));
  base::MutexLock lock(mutex_);
  log_.push_back(std::move(arrived));
  --underWay_;
  changed_.NotifyAll();
}

// ---- EngineClient

std::int64_t EngineClient::create(tsl::CreateParams params) {
  std::unique_ptr<TSLMManager> facade(TSLMManager::CreateTSLMManager(params));
  if (facade == nullptr) return 0;
  facades_.emplace(++lastHandle_, std::move(facade));
  return lastHandle_;
}

void EngineClient::deleteFacade(std::int64_t facade) { facades_.erase(facade); }

void EngineClient::destroyAll() { TSLMManager::DestroyTSLMManager(); }

TSLMManager& EngineClient::facadeOf(std::int64_t handle) {
  const auto found = facades_.find(handle);
  if (found == facades_.end()) throw std::invalid_argument("there is no such facade");
  return *found->second;
}

std::shared_ptr<IFrameManager> EngineClient::frameManagerOf(std::int64_t facade,
                                                            const StreamKey& key) {
  auto frameManager = facadeOf(facade).GetFrameManager(key);
  if (frameManager == nullptr) throw std::invalid_argument("the stream has no frame manager");
  return frameManager;
}

Value EngineClient::call(std::int64_t facade, std::string operation, Array args) {
  return callByName(facadeMethods(), facadeOf(facade), operation, args);
}

Value EngineClient::callConfigData(std::int64_t facade, std::string operation, Array args) {
  return callByName(configDataMethods(), *facadeOf(facade).GetConfigDataPtr(), operation, args);
}

Value EngineClient::callFrameManager(std::int64_t facade, StreamKey key, std::string operation,
                                     Array args) {
  return callByName(frameManagerMethods(), *frameManagerOf(facade, key), operation, args);
}

void EngineClient::registerCallback(std::int64_t facade, bool registered) {
  facadeOf(facade).RegisterNotifyCallback(registered ? NotificationLog::shared(notifications_)
                                                     : nullptr);
}

void EngineClient::awaitNotifications(std::string notification, std::uint32_t count) {
  notifications_->await(notification, count);
}

std::vector<Arrived> EngineClient::takeNotifications() { return notifications_->take(); }

Value EngineClient::getFrame(std::int64_t facade, StreamKey key, std::uint32_t newestId) {
  VideoFrame frame;
  frameManagerOf(facade, key)->GetFrame(newestId, frame);
  const bool readable = !frame.noUpdate;
  Value value = {Record{named("noUpdate", frame.noUpdate), named("clearFrame", frame.clearFrame),
                        named("frameId", frame.frameId), named("csrc", frame.csrc),
                        named("frame", frame.frame), named("width", frame.width),
                        named("height", frame.height), named("engineValue", frame.engineValue),
                        Field{"y", planeValue(frame.yPlane, readable)},
                        Field{"u", planeValue(frame.uPlane, readable)},
                        Field{"v", planeValue(frame.vPlane, readable)}}};
  lastFrame_ = std::move(frame);
  return value;
}

void EngineClient::releaseFrame() { lastFrame_ = {}; }

void EngineClient::setReceiver(std::int64_t facade, StreamKey key, bool attached) {
  frameManagerOf(facade, key)->SetFrameReceiver(attached ? frames_ : nullptr);
}

void EngineClient::setFrameMs(std::uint32_t frameMs) {
  frames_ = std::make_shared<FrameLog>(frameMs);
}

std::uint32_t EngineClient::deliveriesUnderWay() { return frames_->deliveriesUnderWay(); }

std::uint32_t EngineClient::mostDeliveriesAtOnce() { return frames_->mostDeliveriesAtOnce(); }

void EngineClient::awaitDelivery() { frames_->awaitDelivery(); }

void EngineClient::awaitFrames(std::uint32_t count) { frames_->await(count); }

std::vector<ArrivedFrame> EngineClient::takeFrames() { return frames_->take(); }

std::int64_t EngineClient::callbackLetGoOnThread() { return notifications_->letGoOnThread(); }

std::int64_t EngineClient::receiverOwners() { return frames_.use_count() - 1; }

void EngineClient::reset() {
  facades_.clear();
  lastFrame_ = {};
  notifications_ = std::make_shared<NotificationLog>();
  frames_ = std::make_shared<FrameLog>(0);
}

}  // namespace scripted
