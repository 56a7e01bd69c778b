// Who sends what in a room, as the server tells it.

#ifndef ENGINE_WEBRTC_FEED_H_
#define ENGINE_WEBRTC_FEED_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/webrtc/janus_message.h"
#include "engine/webrtc/layer_plan.h"

namespace webrtc {

// Somebody who sends to the room.
// NOLINTNEXTLINE(bugprone-exception-escape): clang-tidy overlooks that a Json is moved without one
struct Feed {
  Json id;  // a number or a text, as the server has it
  std::string name;
  std::string guid;  // empty for who does not tell one
  bool isAudioMuted = false;
  bool isVideoMuted = false;
  // Of the layers of the video, the highest first; empty without layers.
  std::vector<std::uint32_t> layerHeights;
  // With which it receives the videos of others; nothing when it receives none.
  std::optional<Heights> received = Heights();
  std::set<std::string> mids;  // of the streams that are sent
  // The key of the participant who presents this content; "null" for what tells of none.
  std::string presenter;
  // Of the last stream of each kind; empty without one.
  std::string audioMid;
  std::string videoMid;
  std::set<std::string> moderatedMids;  // of the streams that the room has muted

  // The identifier as a text.
  std::string key() const { return id.dump(); }
  // Whether there is a stream that `before` does not have.
  bool sendsMoreThan(const Feed& before) const;
};

// An element of a list of publishers. Nothing when it is not one.
std::optional<Feed> parseFeed(const Json& publisher);

// The SSRC with which the server sends the video of this offer; nothing without video.
std::optional<std::uint32_t> videoSsrcOf(const std::string& offer);
// The same of the audio.
std::optional<std::uint32_t> audioSsrcOf(const std::string& offer);
// The SSRC with which, by this description, lost packets of `ssrc` are sent again; nothing without
// one.
std::optional<std::uint32_t> repetitionSsrcOf(const std::string& description, std::uint32_t ssrc);

// The encoding of the video that this answer accepts, as "VP8"; empty when it accepts none.
std::string videoEncodingOf(const std::string& answer);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_FEED_H_
