#include "engine/webrtc/feed.h"

#include <charconv>
#include <string_view>

namespace webrtc {
namespace {

// What a participant tells of itself with one of its streams; null when it is nothing of ours.
Json stateOf(const Json& stream) {
  return Json::parse(textAt(stream, "description"), nullptr, false);
}

}  // namespace

std::optional<Feed> parseFeed(const Json& publisher) {
  const Json& id = memberOf(publisher, "id");
  if (!id.is_string() && !id.is_number_unsigned()) return std::nullopt;
  Feed feed;
  feed.id = id;
  feed.name = textAt(publisher, "display");
  for (const Json& stream : listAt(publisher, "streams")) {
    const Json state = stateOf(stream);
    const bool isMuted = flagAt(state, "muted");
    const std::string type = textAt(stream, "type");
    if (type == "audio") feed.isAudioMuted = isMuted;
    if (type == "video") feed.isVideoMuted = isMuted;
    if (feed.guid.empty()) feed.guid = textAt(state, "guid");
  }
  return feed;
}

std::optional<std::uint32_t> videoSsrcOf(const std::string& offer) {
  constexpr std::string_view kSsrc = "\na=ssrc:";
  const std::size_t video = offer.find("\nm=video");
  if (video == std::string::npos) return std::nullopt;
  const std::size_t end = offer.find("\nm=", video + 1);
  const std::size_t found = offer.find(kSsrc, video);
  if (found == std::string::npos || found > end) return std::nullopt;
  const char* const first = offer.data() + found + kSsrc.size();
  std::uint32_t ssrc = 0;
  const auto [stop, error] = std::from_chars(first, offer.data() + offer.size(), ssrc);
  if (error != std::errc()) return std::nullopt;
  return ssrc;
}

}  // namespace webrtc
