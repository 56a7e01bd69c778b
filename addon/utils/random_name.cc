#include "addon/utils/random_name.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string_view>

namespace Utils {

std::string gen_random(const std::string& prefix, std::size_t length) {
  constexpr std::string_view kAlphabet =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  static_assert(kAlphabet.size() == 62);

  std::srand(static_cast<unsigned int>(getpid()) * static_cast<unsigned int>(std::time(nullptr)));
  std::string name = "/" + prefix;
  for (std::size_t i = 0; i < length; ++i) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): names are made on the JavaScript thread alone
    name += kAlphabet[static_cast<std::size_t>(std::rand()) % kAlphabet.size()];
  }
  return name;
}

}  // namespace Utils
