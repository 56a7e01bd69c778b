#include "engine/support/json.h"

#include <set>
#include <utility>
#include <vector>

namespace support {
namespace {

using nlohmann::json;

// Thrown where a text goes beyond a limit.
struct BeyondLimit {};

// Holds a text that is being read to the limits.
class Limits {
 public:
  bool operator()(int depth, json::parse_event_t event, const json& parsed) {
    switch (event) {
      case json::parse_event_t::object_start:
        names_.emplace_back();
        [[fallthrough]];
      case json::parse_event_t::array_start:
        if (depth >= kDeepestJson) throw BeyondLimit();
        break;
      case json::parse_event_t::key:
        if (!names_.back().insert(parsed.get<std::string>()).second) throw BeyondLimit();
        break;
      case json::parse_event_t::object_end:
        names_.pop_back();
        break;
      default:
        break;
    }
    return true;
  }

 private:
  std::vector<std::set<std::string>> names_;  // of the objects that are open
};

}  // namespace

std::optional<json> parseJson(std::string_view text) try {
  // The library takes a zero byte for the end of the text.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  Limits limits;
  return json::parse(text, [&limits](int depth, json::parse_event_t event, const json& parsed) {
    return limits(depth, event, parsed);
  });
} catch (const json::exception&) {
  return std::nullopt;
} catch (const BeyondLimit&) {
  return std::nullopt;
}

std::string writeJson(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool isJsonType(std::string_view type, std::string_view subType) {
  return type == "application" && subType == "json";
}

}  // namespace support
