// What the local participant sends, and with which devices.

#ifndef ENGINE_EMBEDDED_DEVICES_LOCAL_MEDIA_H_
#define ENGINE_EMBEDDED_DEVICES_LOCAL_MEDIA_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "engine/embedded/devices/devices.h"
#include "engine/embedded/streams/sent_stream.h"
#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "tesselclient/records.h"

namespace embedded {

// The camera sends while it captures and the video is not muted, and the microphone while the
// audio is not muted, in a call or not. Belongs to the engine's thread.
class LocalMedia {
 public:
  // Makes the local stream, so that its frame manager is there before the camera captures.
  // `level` is how loud the local participant is.
  LocalMedia(const StreamMaker& streams, support::Notifier& notifier,
             std::shared_ptr<const support::Log> log, Sender::Level level);
  LocalMedia(const LocalMedia&) = delete;
  LocalMedia& operator=(const LocalMedia&) = delete;

  // Notified as the local stream's coming and going.
  void setCapturing(bool isCapturing);
  // Notified.
  void setVideoMuted(bool isMuted);
  void setAudioMuted(bool isMuted);
  bool isVideoMuted() const { return isVideoMuted_; }
  bool isAudioMuted() const { return isAudioMuted_; }
  // There is a microphone and it is not muted.
  bool hasOpenMicrophone() const;
  // There is a speaker.
  bool hasSpeaker() const { return devices_.selected(DeviceType::kAudioOut).has_value(); }

  // Whether each level of the microphone is logged.
  void setDebugging(bool isDebugging) { isDebugging_ = isDebugging; }
  bool isDebugging() const { return isDebugging_; }

  void selectMicrophone(const std::string& id) { devices_.select(DeviceType::kAudioIn, id); }
  void selectSpeaker(const std::string& id) { devices_.select(DeviceType::kAudioOut, id); }
  // A camera that is not there, or cannot capture as asked, is logged and changes nothing.
  void selectCamera(const tsl::VideoDevice& camera);
  void setPlugged(const std::string& id, bool isPlugged);
  void restoreDevices();

  bool isSending() const { return capture_.has_value(); }
  TrafficMeter& meter() { return stream_->meter(); }
  std::uint32_t csrc() const { return stream_->csrc(); }

 private:
  // What the camera captures.
  struct Capture {
    int camera = 0;
    support::Size size;
    std::uint32_t rate = 0;
    bool operator==(const Capture&) const = default;
  };

  // What the local stream is to show; nothing when it is not sent.
  std::optional<Capture> wantedCapture() const;
  // Brings what is sent in line with what is wanted; says whether that changed anything.
  bool update();
  // The same, and notifies a change.
  void updateAndNotify();

  support::Notifier& notifier_;
  const std::shared_ptr<const support::Log> log_;
  const std::unique_ptr<SentStream> stream_;
  Devices devices_;
  support::Size size_ = {1280, 720};
  std::uint32_t rate_ = 30;
  std::optional<Capture> capture_;  // being sent
  bool isCapturing_ = false;
  bool isVideoMuted_ = false;
  bool isAudioMuted_ = false;
  bool isDebugging_ = false;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_DEVICES_LOCAL_MEDIA_H_
