// What the engine tells its owner.

#ifndef TESSELCLIENT_NOTIFY_CALLBACK_H_
#define TESSELCLIENT_NOTIFY_CALLBACK_H_

#include <string>
#include <utility>

#include "tesselclient/types.h"

// The owner's sink for the engine's notifications. The engine holds it under shared ownership and
// calls it from any of its threads, several at once; NotifyInitCompleted may also be called from
// inside TSLMManager::Initialize. Implementations return quickly and do not throw.
//
// The order of the virtual operations is an ABI promise; test/native/engine/engine_abi_test.cc
// fixes it.
class TESSELCLIENT_API INotifyCallback {
 public:
  virtual ~INotifyCallback() = default;

  virtual void NotifyInitCompleted() = 0;
  virtual void NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) = 0;
  virtual void NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) = 0;
  virtual void NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int> stream, unsigned int csrc) = 0;
  virtual void NotifyGracefulEvent(std::string event, bool enable) = 0;
  virtual void NotifyCallConnectionStatus(bool connected) = 0;
  virtual void NotifyScreenShareStatus(ShareStatus status) = 0;
  virtual void NotifyContentReceiveStatus(bool isReceiving, std::string presenterGuid) = 0;
  virtual void NotifyCallDisconnect(int callId, std::string reason, int code) = 0;
  virtual void NotifyMediaMuteState(MediaType type, bool muted) = 0;
  virtual void NotifyMicLevel(unsigned int level) = 0;
  virtual void NotifyRtpMediaState(MediaType type, bool up) = 0;
  virtual void NotifyDeviceChange(std::string id, DeviceType type) = 0;
  virtual void NotifyEvent(const std::string& eventName, const std::string& eventBody) = 0;
  virtual void NotifyUpdateVOQualityIndex(VSPVoQualityIndex index) = 0;
};

#endif  // TESSELCLIENT_NOTIFY_CALLBACK_H_
