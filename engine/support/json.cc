#include "engine/support/json.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace support {
namespace {

constexpr int kDeepest = 32;

// Thrown where the text is not JSON.
struct Malformed {};

bool isDigit(char character) { return character >= '0' && character <= '9'; }

void appendUtf8(std::string& text, std::uint32_t code) {
  const auto byte = [&text](std::uint32_t value) { text += static_cast<char>(value); };
  if (code < 0x80) {
    byte(code);
    return;
  }
  if (code < 0x800) {
    byte(0xc0 | code >> 6);
  } else {
    if (code < 0x10000) {
      byte(0xe0 | code >> 12);
    } else {
      byte(0xf0 | code >> 18);
      byte(0x80 | (code >> 12 & 0x3f));
    }
    byte(0x80 | (code >> 6 & 0x3f));
  }
  byte(0x80 | (code & 0x3f));
}

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  JsonValue readAll() {
    JsonValue value = readValue(0);
    skipBlanks();
    if (!text_.empty()) throw Malformed();
    return value;
  }

 private:
  JsonValue readValue(int depth) {
    skipBlanks();
    switch (peek()) {
      case '{':
        return JsonValue(readObject(depth));
      case '[':
        return JsonValue(readArray(depth));
      case '"':
        return JsonValue(readString());
      case 't':
        expect("true");
        return JsonValue(true);
      case 'f':
        expect("false");
        return JsonValue(false);
      case 'n':
        expect("null");
        return {};
      default:
        return JsonValue(readNumber());
    }
  }

  JsonValue::Object readObject(int depth) {
    JsonValue::Object object;
    readItems(depth, '{', '}', [&] {
      skipBlanks();
      std::string name = readString();
      skipBlanks();
      expect(":");
      if (!object.emplace(std::move(name), readValue(depth + 1)).second) throw Malformed();
    });
    return object;
  }

  JsonValue::Array readArray(int depth) {
    JsonValue::Array array;
    readItems(depth, '[', ']', [&] { array.push_back(readValue(depth + 1)); });
    return array;
  }

  void readItems(int depth, char open, char close, auto readItem) {
    if (depth == kDeepest) throw Malformed();
    expect({&open, 1});
    skipBlanks();
    if (take(close)) return;
    do {
      readItem();
      skipBlanks();
    } while (take(','));
    expect({&close, 1});
  }

  std::string readString() {
    expect("\"");
    std::string value;
    while (!take('"')) {
      const char character = next();
      if (static_cast<unsigned char>(character) < 0x20) throw Malformed();
      if (character == '\\') {
        readEscape(value);
      } else {
        value += character;
      }
    }
    return value;
  }

  void readEscape(std::string& value) {
    constexpr std::string_view kNames = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    const char name = next();
    if (name == 'u') {
      appendUtf8(value, readCodePoint());
      return;
    }
    const std::size_t place = kNames.find(name);
    if (place == std::string_view::npos) throw Malformed();
    value += kMeanings[place];
  }

  // What follows "\u": one code unit, or a pair of surrogates.
  std::uint32_t readCodePoint() {
    const std::uint32_t first = readCodeUnit();
    if (first < 0xd800 || first > 0xdfff) return first;
    expect("\\u");
    const std::uint32_t second = readCodeUnit();
    if (first > 0xdbff || second < 0xdc00 || second > 0xdfff) throw Malformed();
    return 0x10000 + ((first - 0xd800) << 10 | (second - 0xdc00));
  }

  std::uint32_t readCodeUnit() {
    if (text_.size() < 4) throw Malformed();
    std::uint32_t unit = 0;
    const auto [stop, error] = std::from_chars(text_.data(), text_.data() + 4, unit, 16);
    if (error != std::errc() || stop != text_.data() + 4) throw Malformed();
    text_.remove_prefix(4);
    return unit;
  }

  double readNumber() {
    const char* const start = text_.data();
    take('-');
    if (!take('0')) skipDigits();
    if (take('.')) skipDigits();
    if (take('e') || take('E')) {
      if (!take('+')) take('-');
      skipDigits();
    }
    double number = 0;
    if (std::from_chars(start, text_.data(), number).ec != std::errc()) throw Malformed();
    return number;
  }

  void skipDigits() {
    if (!isDigit(peek())) throw Malformed();
    while (isDigit(peek())) text_.remove_prefix(1);
  }

  void skipBlanks() {
    const std::size_t count = text_.find_first_not_of(" \t\n\r");
    text_.remove_prefix(std::min(count, text_.size()));
  }

  // A zero byte at the end.
  char peek() const { return text_.empty() ? '\0' : text_.front(); }

  char next() {
    if (text_.empty()) throw Malformed();
    const char character = text_.front();
    text_.remove_prefix(1);
    return character;
  }

  bool take(char character) {
    if (text_.empty() || text_.front() != character) return false;
    text_.remove_prefix(1);
    return true;
  }

  void expect(std::string_view word) {
    if (!text_.starts_with(word)) throw Malformed();
    text_.remove_prefix(word.size());
  }

  std::string_view text_;
};

}  // namespace

std::optional<JsonValue> parseJson(std::string_view text) try {
  return Reader(text).readAll();
} catch (const Malformed&) {
  return std::nullopt;
}

std::string quoteJson(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      quoted += '\\';
      quoted += character;
    } else if (code < 0x20) {
      std::array<char, 8> escape = {};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", code);
      quoted += escape.data();
    } else {
      quoted += character;
    }
  }
  return quoted + '"';
}

}  // namespace support
