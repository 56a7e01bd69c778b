#include "engine/support/uri_text.h"

#include <charconv>
#include <system_error>

namespace support {
namespace {

// Text of the uri for an error text: kept short.
std::string quoted(std::string_view text) { return std::string(text.substr(0, 80)); }

int hexadecimalDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  throw BadValue();
}

// Replaces each % and two hexadecimal digits by the byte that they stand for.
std::string decoded(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      plain += text[i];
      continue;
    }
    if (i + 2 >= text.size()) throw BadValue();
    plain += static_cast<char>(hexadecimalDigit(text[i + 1]) * 16 + hexadecimalDigit(text[i + 2]));
    i += 2;
  }
  // A zero byte would cut a file's name short.
  if (plain.find('\0') != std::string::npos) throw BadValue();
  return plain;
}

}  // namespace

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  while (true) {
    const std::size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::pair<std::string_view, std::string_view> splitInTwo(std::string_view text, char separator) {
  const auto pieces = split(text, separator);
  if (pieces.size() != 2) throw BadValue();
  return {pieces[0], pieces[1]};
}

std::uint32_t toNumber(std::string_view text, std::uint32_t least, std::uint32_t most) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < least || number > most) throw BadValue();
  return number;
}

QueryReader::QueryReader(Reads single, Reads lists, std::set<std::string_view> secrets)
    : single_(std::move(single)), lists_(std::move(lists)), secrets_(std::move(secrets)) {}

void QueryReader::read(std::string_view query) {
  for (const auto parameter : split(query, '&')) readParameter(parameter);
}

void QueryReader::readParameter(std::string_view parameter) {
  const std::string_view name = parameter.substr(0, parameter.find('='));
  const auto single = single_.find(name);
  const auto list = lists_.find(name);
  if (single == single_.end() && list == lists_.end()) {
    throw BadUri(secret_.empty() ? "unknown parameter: " + quoted(name)
                                 : "unknown parameter behind " + secret_);
  }
  if (secrets_.contains(name)) secret_ = name;
  if (single != single_.end() && !given_.emplace(name).second) {
    throw BadUri("parameter given twice: " + quoted(name));
  }
  try {
    if (name.size() == parameter.size()) throw BadValue();
    const std::string value = decoded(parameter.substr(name.size() + 1));
    if (single != single_.end()) {
      single->second(value);
    } else {
      for (const auto item : split(value, ',')) list->second(item);
    }
  } catch (const BadValue&) {
    throw BadUri("bad value: " + quoted(secret_.empty() ? parameter : name));
  }
}

}  // namespace support
