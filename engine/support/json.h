// Reading and writing JSON.

#ifndef ENGINE_SUPPORT_JSON_H_
#define ENGINE_SUPPORT_JSON_H_

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace support {

// How deep the values of a text may nest.
constexpr int kDeepestJson = 32;

// Nothing unless the whole text is one JSON value. Stricter than the format asks: an object's names
// are unique, and values nest at most kDeepestJson deep.
std::optional<nlohmann::json> parseJson(std::string_view text);

// Bytes that are not UTF-8 are replaced.
std::string writeJson(const nlohmann::ordered_json& value);

// Whether this MIME type is application/json.
bool isJsonType(std::string_view type, std::string_view subType);

}  // namespace support

#endif  // ENGINE_SUPPORT_JSON_H_
