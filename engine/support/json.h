// A small strict reader of JSON.

#ifndef ENGINE_SUPPORT_JSON_H_
#define ENGINE_SUPPORT_JSON_H_

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace support {

// A value of a JSON text.
class JsonValue {
 public:
  using Array = std::vector<JsonValue>;
  using Object = std::map<std::string, JsonValue, std::less<>>;

  JsonValue() = default;
  explicit JsonValue(auto value) : value_(std::move(value)) {}

  // Null when the value is of another type.
  const bool* asBool() const { return std::get_if<bool>(&value_); }
  const double* asNumber() const { return std::get_if<double>(&value_); }
  const std::string* asString() const { return std::get_if<std::string>(&value_); }
  const Array* asArray() const { return std::get_if<Array>(&value_); }
  const Object* asObject() const { return std::get_if<Object>(&value_); }
  bool isNull() const { return std::holds_alternative<std::monostate>(value_); }

 private:
  std::variant<std::monostate, bool, double, std::string, Array, Object> value_;
};

// Nothing unless the whole text is one JSON value. Stricter than the format asks: an object's names
// are unique, and values nest at most 32 deep.
std::optional<JsonValue> parseJson(std::string_view text);

// The text as a JSON string, with its quotation marks.
std::string quoteJson(std::string_view text);

}  // namespace support

#endif  // ENGINE_SUPPORT_JSON_H_
