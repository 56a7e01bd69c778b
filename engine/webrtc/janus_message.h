// Reading what a Janus server says. Nothing in it is trusted to be there or of the right type.

#ifndef ENGINE_WEBRTC_JANUS_MESSAGE_H_
#define ENGINE_WEBRTC_JANUS_MESSAGE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace webrtc {

using Json = nlohmann::json;

// A member of an object; null when there is none.
inline const Json& memberOf(const Json& object, const char* name) {
  static const Json kNull;
  const auto found = object.is_object() ? object.find(name) : object.end();
  return found == object.end() ? kNull : *found;
}

// Empty when there is no such text.
inline std::string textAt(const Json& object, const char* name) {
  const Json& member = memberOf(object, name);
  return member.is_string() ? member.get<std::string>() : std::string();
}

// The same for people to read: of moderate length, and of printable characters of ASCII.
inline std::string reasonAt(const Json& object, const char* name) {
  constexpr std::size_t kLongest = 200;
  std::string reason = textAt(object, name).substr(0, kLongest);
  std::replace_if(
      reason.begin(), reason.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return reason;
}

// 0 when there is no such number.
inline std::int64_t numberAt(const Json& object, const char* name) {
  const Json& member = memberOf(object, name);
  return member.is_number_integer() ? member.get<std::int64_t>() : 0;
}

inline bool flagAt(const Json& object, const char* name) {
  const Json& member = memberOf(object, name);
  return member.is_boolean() && member.get<bool>();
}

// The elements of an array; none when there is no such array.
inline const Json::array_t& listAt(const Json& object, const char* name) {
  static const Json::array_t kNone;
  const Json& member = memberOf(object, name);
  return member.is_array() ? member.get_ref<const Json::array_t&>() : kNone;
}

// A session description that goes with a message.
struct Jsep {
  std::string type;  // "offer" or "answer"
  std::string sdp;
};

// What was answered to a request.
struct JanusAnswer {
  int errorCode = 0;  // 0: none
  std::string errorReason;
  Json data;  // of the plugin, or of the answer itself
  std::optional<Jsep> jsep;

  bool isError() const { return errorCode != 0; }
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_JANUS_MESSAGE_H_
