#include "engine/webrtc/feed.h"

#include <gst/sdp/sdp.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

#include "engine/webrtc/glib.h"

namespace webrtc {
namespace {

// What a participant tells of itself with one of its streams; null when it is nothing of ours.
Json stateOf(const Json& stream) {
  return Json::parse(textAt(stream, "description"), nullptr, false);
}

// The number at this place of a text.
std::optional<std::uint32_t> numberIn(const std::string& text, std::size_t place) {
  std::uint32_t number = 0;
  const auto [stop, error] =
      std::from_chars(text.data() + place, text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  return number;
}

// The first SSRC of the first media line that begins so.
std::optional<std::uint32_t> ssrcOf(const std::string& offer, std::string_view mediaLine) {
  constexpr std::string_view kSsrc = "\na=ssrc:";
  const std::size_t media = offer.find(mediaLine);
  if (media == std::string::npos) return std::nullopt;
  const std::size_t end = offer.find("\nm=", media + 1);
  const std::size_t found = offer.find(kSsrc, media);
  if (found == std::string::npos || found > end) return std::nullopt;
  return numberIn(offer, found + kSsrc.size());
}

constexpr std::int64_t kGreatestHeight = 16384;

// Empty unless these are the heights of several layers.
std::vector<std::uint32_t> heightsAt(const Json& state) {
  std::vector<std::uint32_t> heights;
  const auto& list = listAt(state, "layers");
  if (list.size() > kMostLayers) return {};
  for (const Json& height : list) {
    const bool isHeight = height.is_number_unsigned() && height > 0 && height < kGreatestHeight;
    if (!isHeight) return {};
    heights.push_back(height.get<std::uint32_t>());
  }
  return heights;
}

// Who does not tell them in a valid way may receive videos as they are.
std::optional<Heights> receivedHeightsAt(const Json& state) {
  const Json& list = memberOf(state, "receives");
  if (!list.is_array()) return Heights();
  if (list.empty()) return std::nullopt;
  const auto isHeight = [](const Json& height) {
    return height.is_number_unsigned() && height <= Heights::kWhole;
  };
  if (list.size() != 2 || !std::all_of(list.begin(), list.end(), isHeight)) return Heights();
  return Heights{.least = list[0].get<std::uint32_t>(), .most = list[1].get<std::uint32_t>()};
}

}  // namespace

bool Feed::sendsMoreThan(const Feed& before) const {
  return !std::includes(before.mids.begin(), before.mids.end(), mids.begin(), mids.end());
}

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
    const std::string mid = textAt(stream, "mid");
    if (!flagAt(stream, "disabled")) feed.mids.insert(mid);
    if (flagAt(stream, "moderated")) feed.moderatedMids.insert(mid);
    if (type == "audio") {
      feed.audioMid = mid;
      feed.isAudioMuted = isMuted;
    }
    if (type == "video") {
      feed.videoMid = mid;
      feed.isVideoMuted = isMuted;
      feed.layerHeights = heightsAt(state);
      feed.received = receivedHeightsAt(state);
    }
    if (feed.guid.empty()) feed.guid = textAt(state, "guid");
    if (type == "video") feed.presenter = memberOf(state, "presenter").dump();
  }
  return feed;
}

std::optional<std::uint32_t> videoSsrcOf(const std::string& offer) {
  return ssrcOf(offer, "\nm=video");
}

std::optional<std::uint32_t> audioSsrcOf(const std::string& offer) {
  return ssrcOf(offer, "\nm=audio");
}

std::optional<std::uint32_t> repetitionSsrcOf(const std::string& description, std::uint32_t ssrc) {
  const std::string group = "\na=ssrc-group:FID " + std::to_string(ssrc) + ' ';
  const std::size_t found = description.find(group);
  if (found == std::string::npos) return std::nullopt;
  return numberIn(description, found + group.size());
}

std::string videoEncodingOf(const std::string& answer) {
  GstSDPMessage* parsed = nullptr;
  const bool isSdp =
      !answer.empty() && gst_sdp_message_new_from_text(answer.c_str(), &parsed) == GST_SDP_OK;
  const SdpPtr sdp(parsed);
  for (guint line = 0; isSdp && line < gst_sdp_message_medias_len(parsed); ++line) {
    const GstSDPMedia* const media = gst_sdp_message_get_media(parsed, line);
    const char* const type = gst_sdp_media_get_format(media, 0);
    const bool isAccepted = type != nullptr && gst_sdp_media_get_port(media) != 0;
    if (!isAccepted || std::string_view(gst_sdp_media_get_media(media)) != "video") continue;
    const CapsPtr caps(gst_sdp_media_get_caps_from_media(media, std::atoi(type)));
    const char* const name =
        caps ? gst_structure_get_string(gst_caps_get_structure(caps.get(), 0), "encoding-name")
             : nullptr;
    return name ? name : "";
  }
  return "";
}

}  // namespace webrtc
