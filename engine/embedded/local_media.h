// What the local participant sends, and with which devices.

#ifndef ENGINE_EMBEDDED_LOCAL_MEDIA_H_
#define ENGINE_EMBEDDED_LOCAL_MEDIA_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "engine/embedded/devices.h"
#include "engine/embedded/engine_parts.h"
#include "engine/embedded/sender.h"
#include "tesselclient/records.h"

namespace embedded {

// The camera films while it captures and the video is not muted, and the microphone hears while
// the audio is not muted, in a call or not. Belongs to the engine's thread.
class LocalMedia {
 public:
  // Makes the local stream, so that its frame manager is there before the camera captures.
  // `level` is how loud the local participant is.
  LocalMedia(EngineParts& parts, Sender::Level level);
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
  bool hears() const;
  // There is a speaker.
  bool sounds() const { return devices_.selected(DeviceType::kAudioOut).has_value(); }

  // Whether each level of the microphone is logged.
  void setDebugging(bool isDebugging) { isDebugging_ = isDebugging; }
  bool isDebugging() const { return isDebugging_; }

  void selectMicrophone(const std::string& id) { devices_.select(DeviceType::kAudioIn, id); }
  void selectSpeaker(const std::string& id) { devices_.select(DeviceType::kAudioOut, id); }
  // A camera that is not there, or cannot film as asked, is logged and changes nothing.
  void selectCamera(const tsl::VideoDevice& camera);
  void setPlugged(const std::string& id, bool isPlugged);
  void restoreDevices();

  bool isSending() const { return film_.has_value(); }
  TrafficMeter& meter() { return sender_.meter(); }
  std::uint32_t csrc() const { return stream_->csrc(); }

 private:
  // How the camera films.
  struct Film {
    int camera = 0;
    support::Size size;
    std::uint32_t rate = 0;
    bool operator==(const Film&) const = default;
  };

  // What the local stream is to show; nothing when it is not sent.
  std::optional<Film> wantedFilm() const;
  // Brings what is sent in line with what is wanted; says whether that changed anything.
  bool update();
  // The same, and notifies a change.
  void updateAndNotify();

  EngineParts& parts_;
  const std::shared_ptr<support::VideoStream> stream_;
  Sender sender_;
  Devices devices_;
  support::Size size_ = {1280, 720};
  std::uint32_t rate_ = 30;
  std::optional<Film> film_;  // being sent
  bool isCapturing_ = false;
  bool isVideoMuted_ = false;
  bool isAudioMuted_ = false;
  bool isDebugging_ = false;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_LOCAL_MEDIA_H_
