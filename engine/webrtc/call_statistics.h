// The measuring of a call.

#ifndef ENGINE_WEBRTC_CALL_STATISTICS_H_
#define ENGINE_WEBRTC_CALL_STATISTICS_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "engine/support/clock.h"
#include "engine/support/pictures/picture.h"
#include "engine/webrtc/rtp_counts.h"
#include "tesselclient/records.h"

namespace webrtc {

// The frames of a video, since the first of them.
struct FrameCounts {
  std::uint64_t frames = 0;
  support::Size size;  // of the newest
};

// The SSRCs of what a connection carries; 0 for what there is not.
struct Tracks {
  std::uint32_t audio = 0;
  std::uint32_t video = 0;
  std::uint32_t repeatedVideo = 0;  // packets of the video that are sent again
};

// What a connection carried in a window of time, sent or received.
struct Traffic {
  struct Audio {
    std::uint64_t payloadBytes = 0;
    std::uint64_t lost = 0;
    std::uint64_t repaired = 0;  // counted by who decodes
    double jitterMs = 0;
  };

  std::uint32_t videoSsrc = 0;
  std::optional<tsl::VideoStats> video;  // from its first packet on
  Audio audio;
  std::uint64_t bytes = 0;
  double packets = 0;  // expected, without repetitions
  double lost = 0;     // of these
};

// Of content; nothing while there is none.
struct ContentTraffic {
  std::optional<Traffic> sent;
  std::optional<Traffic> received;
};

// Counts in windows of time what one connection carries. It either sends or receives. Belongs to
// the engine's thread.
class ConnectionMeter {
 public:
  // The window has lasted so long; the next one begins.
  Traffic closeWindow(support::Time length, RtpCounts counts, const Tracks& tracks,
                      const FrameCounts& frames);

 private:
  RtpCounts before_;
  FrameCounts framesBefore_;
};

// Puts together what the connections of a call carried. Belongs to the engine's thread.
class CallStatistics {
 public:
  // In a window of this length.
  void collect(support::Time length, const Traffic& sent, const std::vector<Traffic>& received,
               const ContentTraffic& content, tsl::MeetingStats& stats);

 private:
  tsl::AudioStats counted_;  // since the call began, also of those who have left it
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_CALL_STATISTICS_H_
