// The WebRTC engine reads what an SFU says: it must not crash or hang, and what it keeps for people
// to read stays within its limits.

#include <gst/gst.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/support/json.h"
#include "engine/webrtc/admission.h"
#include "engine/webrtc/feed.h"
#include "engine/webrtc/janus_message.h"
#include "test/fuzz/require.h"

namespace {

using webrtc::Json;

constexpr std::size_t kLongestText = 256;
constexpr std::size_t kLongestReason = 200;
constexpr int kPlaces = 3;

void read(const std::string& text) {
  const Json message = support::parseJson(text).value_or(Json());
  const std::string reason = webrtc::reasonAt(message, "reason");
  fuzz::require(reason.size() <= kLongestReason);
  fuzz::require(
      std::all_of(reason.begin(), reason.end(), [](char c) { return c >= ' ' && c <= '~'; }));
  webrtc::Admission admission(kPlaces, kPlaces);
  for (const Json& publisher : webrtc::listAt(message, "publishers")) {
    const auto feed = webrtc::parseFeed(publisher);
    if (!feed) continue;
    fuzz::require(feed->name.size() <= kLongestText && feed->guid.size() <= kLongestText);
    const auto place = admission.place(*feed);
    fuzz::require(!place || (*place >= 0 && *place < kPlaces));
    admission.remove(webrtc::memberOf(publisher, "feed").is_null() ? "7" : feed->key());
  }
}

void describe(const std::string& sdp) {
  const auto video = webrtc::videoSsrcOf(sdp);
  const auto audio = webrtc::audioSsrcOf(sdp);
  for (const auto ssrc : {video, audio}) {
    if (ssrc) webrtc::repetitionSsrcOf(sdp, *ssrc);
  }
  webrtc::videoEncodingOf(sdp);
}

// Takes the text until the next line break.
std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

}  // namespace

// GLib keeps each name of a field that it has seen, and loses the list of them when it makes a
// longer one. NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer's name
extern "C" const char* __lsan_default_suppressions() { return "leak:^g_malloc$\n"; }

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  gst_init(nullptr, nullptr);
  return 0;
}

// The first byte says what the rest is. Random input hardly has the form of a message, so lines of
// it are also put where a message has its values.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  switch (data[0] % 4) {
    case 0:
      read(std::string(rest));
      break;
    case 1: {
      std::string text = R"({"publishers":[)";
      for (const char* const between :
           {R"({"id":)", R"(,"display":)", R"(,"streams":[{"type":"video","mid":)",
            R"(,"description":)", R"(},)", R"(],"feed":)"}) {
        text += between;
        text += takeLine(rest);
      }
      read(text + "}," + std::string(rest) + R"(],"reason":"x"})");
      break;
    }
    case 2:
      describe(std::string(rest));
      break;
    default:
      describe("v=0\r\nm=video 9 UDP/TLS/RTP/SAVPF 96\r\na=rtpmap:96 " + std::string(rest) +
               "\r\na=ssrc:22 x\r\na=ssrc-group:FID 22 " + std::string(rest) + "\r\n");
  }
  return 0;
}
