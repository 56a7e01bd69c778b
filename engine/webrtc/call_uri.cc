#include "engine/webrtc/call_uri.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>

#include "engine/support/uri_text.h"
#include "engine/webrtc/call_end.h"

namespace webrtc {
namespace {

using support::BadValue;
using support::toNumber;

constexpr std::size_t kLongestUri = 8192;
constexpr std::size_t kLongestRoom = 256;
constexpr std::string_view kSchemes[] = {"janus+ws:", "janus+wss:"};
constexpr std::string_view kScheme = "janus+";
// What fits into a card's code.
constexpr std::uint32_t kHighestDetail = 0xffffff;
constexpr std::uint32_t kLowestTone = 20;
constexpr std::uint32_t kHighestTone = 8000;

[[noreturn]] void refuse(const std::string& reason) { throw CallFailure(kBadUri, reason); }

std::string toText(std::string_view value) {
  if (value.empty()) throw BadValue();
  return std::string(value);
}

// The text after `prefix`; nothing when the text begins otherwise.
std::optional<std::string_view> after(std::string_view prefix, std::string_view text) {
  if (!text.starts_with(prefix)) return std::nullopt;
  return text.substr(prefix.size());
}

// card, card:N or a clip's file.
CameraSource toCamera(std::string_view value) {
  using Kind = CameraSource::Kind;
  if (value == "card") return {.kind = Kind::kCard, .detail = 0, .path = {}};
  if (const auto detail = after("card:", value)) {
    return {.kind = Kind::kCard, .detail = toNumber(*detail, 0, kHighestDetail), .path = {}};
  }
  if (!value.ends_with(".y4m")) throw BadValue();
  return {.kind = Kind::kClip, .detail = 0, .path = std::string(value)};
}

// tone:HZ or a clip's file.
MicrophoneSource toMicrophone(std::string_view value) {
  using Kind = MicrophoneSource::Kind;
  if (const auto hertz = after("tone:", value)) {
    return {.kind = Kind::kTone, .hertz = toNumber(*hertz, kLowestTone, kHighestTone)};
  }
  if (!value.ends_with(".wav")) throw BadValue();
  return {.kind = Kind::kClip, .path = std::string(value)};
}

// ws(s)://HOST[:PORT][/PATH], of characters that a uri may hold there.
bool isServer(std::string_view url) {
  const auto server = url.substr(url.find(':') + 1);
  const auto isPlain = [](char character) {
    return character > ' ' && character < 0x7f &&
           std::string_view("\"<>\\^`{|}#@").find(character) == std::string_view::npos;
  };
  return server.starts_with("//") && server.size() > 2 && server[2] != '/' && server[2] != ':' &&
         std::all_of(server.begin(), server.end(), isPlain);
}

}  // namespace

CallTarget parseCallUri(const std::string& uri) {
  std::string_view rest = uri;
  if (rest.size() > kLongestUri) refuse("the uri is too long");
  const bool isOurs = std::any_of(std::begin(kSchemes), std::end(kSchemes),
                                  [&](auto scheme) { return rest.starts_with(scheme); });
  if (!isOurs) refuse("the uri's scheme is neither janus+ws nor janus+wss");
  const std::size_t question = std::min(rest.find('?'), rest.size());
  CallTarget target;
  target.url = rest.substr(kScheme.size(), question - kScheme.size());
  // Names and passwords before an @ would be in the log.
  if (!isServer(target.url)) refuse("the uri's server is missing or malformed");
  rest.remove_prefix(std::min(question + 1, rest.size()));
  support::QueryReader query(
      {
          {"room",
           [&](auto value) {
             if (value.size() > kLongestRoom) throw BadValue();
             target.room = toText(value);
           }},
          {"pin", [&](auto value) { target.pin = toText(value); }},
          {"token", [&](auto value) { target.token = toText(value); }},
          {"authority", [&](auto value) { target.authorityFile = toText(value); }},
          {"camera", [&](auto value) { target.camera = toCamera(value); }},
          {"microphone", [&](auto value) { target.microphone = toMicrophone(value); }},
      },
      {}, {"pin", "token"});
  try {
    if (!rest.empty()) query.read(rest);
  } catch (const support::BadUri& error) {
    refuse(error.what());
  }
  if (target.room.empty()) refuse("the uri names no room");
  return target;
}

}  // namespace webrtc
