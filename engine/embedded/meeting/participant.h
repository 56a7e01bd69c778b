// A remote participant.

#ifndef ENGINE_EMBEDDED_MEETING_PARTICIPANT_H_
#define ENGINE_EMBEDDED_MEETING_PARTICIPANT_H_

#include <cstdint>
#include <memory>
#include <optional>

#include "engine/embedded/meeting/meeting_plan.h"
#include "engine/embedded/meeting/speech.h"
#include "engine/embedded/streams/sent_stream.h"
#include "engine/support/notifier.h"
#include "engine/support/pictures/y4m_clip.h"
#include "engine/support/roster.h"
#include "engine/support/streams/layout.h"

namespace embedded {

// Somebody in a meeting, with a camera and a microphone, as received over a link. Owned by the
// meeting, which outlives it with its plan; belongs to the engine's thread.
class Participant {
 public:
  // `clip` is what the camera shows; empty for a test card. `level` is how loud the participant is
  // when the microphone is not muted.
  Participant(const StreamMaker& streams, support::Notifier& notifier, const MeetingPlan& plan,
              int number, std::shared_ptr<const support::Y4mClip> clip, Sender::Level level);
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  // Both are notified. join() is called first, leave() last.
  void join(const support::Reception& reception);
  void leave();

  std::uint32_t csrc() const { return stream_->csrc(); }
  // Changes are notified as updates of the stream.
  void receive(const support::Reception& reception);
  void setVideoMuted(bool isMuted);
  void setAudioMuted(bool isMuted) { isAudioMuted_ = isMuted; }
  // Whether the link carries nothing.
  void setCut(bool isCut);
  bool isCut() const { return isCut_; }

  // As the application is told, but for what is presented.
  support::Person person() const;

  // How loud the participant arrives, 0 to 100.
  std::uint32_t level() const;
  bool isReceived() const { return format_.has_value(); }
  TrafficMeter& meter() { return stream_->meter(); }

 private:
  // What arrives of the camera's video.
  struct Format {
    support::Size size;
    std::uint32_t mostPerSecond = 0;
    bool operator==(const Format&) const = default;
  };

  // Nothing when no video is to arrive.
  std::optional<Format> wantedFormat() const;
  // Brings what is sent in line with what is wanted; says whether that changed anything.
  bool update();
  void updateAndNotify();
  std::unique_ptr<support::PictureSource> camera(support::Size size) const;

  support::Notifier& notifier_;
  const MeetingPlan& plan_;
  const int number_;
  const std::shared_ptr<const support::Y4mClip> clip_;
  const Sender::Level loudness_;
  const std::unique_ptr<SentStream> stream_;
  support::Reception reception_;
  std::optional<Format> format_;  // being sent
  bool isVideoMuted_ = false;
  bool isAudioMuted_ = false;
  bool isCut_ = false;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_PARTICIPANT_H_
