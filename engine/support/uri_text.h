// Reading the texts of uris.

#ifndef ENGINE_SUPPORT_URI_TEXT_H_
#define ENGINE_SUPPORT_URI_TEXT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace support {

// Thrown by the readers of values; the reader of the query adds the parameter's name.
struct BadValue {};

// What is wrong with a uri.
class BadUri : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Splits at every `separator`; a text without one is one piece.
std::vector<std::string_view> split(std::string_view text, char separator);
// Splits in two at the only `separator`. Throws BadValue.
std::pair<std::string_view, std::string_view> splitInTwo(std::string_view text, char separator);
// Decimal digits alone. Throws BadValue.
std::uint32_t toNumber(std::string_view text, std::uint32_t least, std::uint32_t most);

// The parameters of a uri, NAME=VALUE&NAME=VALUE..., where a value may hold any byte but zero as %
// and two hexadecimal digits. Used once.
class QueryReader {
 public:
  using Read = std::function<void(std::string_view value)>;
  using Reads = std::map<std::string_view, Read>;

  // `single` are given once at most. `lists` are given any number of times, and what is read are
  // their items, which commas separate. The values of `secrets` are in no error's text, nor is what
  // follows them: it belongs to the secret where an & in it is not written as %26.
  explicit QueryReader(Reads single, Reads lists = {}, std::set<std::string_view> secrets = {});

  // Throws BadUri for a parameter that is not known, given twice, or has a value for which its
  // reader throws BadValue.
  void read(std::string_view query);

 private:
  void readParameter(std::string_view parameter);

  const Reads single_;
  const Reads lists_;
  const std::set<std::string_view> secrets_;
  std::set<std::string, std::less<>> given_;
  std::string secret_;  // the name of the secret that was given last, if one was
};

}  // namespace support

#endif  // ENGINE_SUPPORT_URI_TEXT_H_
