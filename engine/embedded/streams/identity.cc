#include "engine/embedded/streams/identity.h"

#include <array>
#include <cstdio>

#include "engine/embedded/random.h"

namespace embedded {
namespace {

// Keep the seed's different uses apart.
constexpr std::uint64_t kCsrcUse = 11;
constexpr std::uint64_t kGuidUse = 12;
constexpr std::uint64_t kHueUse = 13;
constexpr std::uint64_t kNameUse = 14;

// More than there are participants.
constexpr std::array<const char*, 64> kNames = {
    "Ada",   "Agnes",  "Ahmed", "Aiko",  "Amara", "Anton",  "Arjun", "Astrid", "Bela",  "Bruno",
    "Carla", "Chidi",  "Clara", "Dana",  "Diego", "Dora",   "Edith", "Elias",  "Emeka", "Erik",
    "Esra",  "Farid",  "Fiona", "Greta", "Hana",  "Henrik", "Ida",   "Ilya",   "Ines",  "Ivo",
    "Jamal", "Jana",   "Jonas", "Kofi",  "Laila", "Lars",   "Leila", "Linh",   "Luca",  "Maja",
    "Marco", "Mei",    "Mirko", "Nadia", "Niko",  "Noor",   "Olga",  "Omar",   "Paula", "Pedro",
    "Petra", "Rana",   "Ravi",  "Rosa",  "Samir", "Selma",  "Sofia", "Tariq",  "Thea",  "Tomas",
    "Uma",   "Viktor", "Yara",  "Zoe"};

std::uint32_t numberOf(const StreamKey& key) {
  switch (key.first) {
    case TSLM_STREAM_LOCAL:
      return 0;
    case TSLM_STREAM_CONTENT:
      return 1;
    case TSLM_STREAM_REMOTE:
      break;
  }
  return 16 + static_cast<std::uint32_t>(key.second);
}

}  // namespace

std::uint32_t csrcOf(std::uint32_t seed, const StreamKey& key) {
  const std::uint32_t number = numberOf(key);
  const auto drawn = static_cast<std::uint32_t>(chance(seed, kCsrcUse, number));
  // The highest bit keeps every value from being 0.
  return 0x8000'0000 | (drawn & 0x7fff'ff00) | number;
}

std::string guidOf(std::uint32_t seed, int participant) {
  const auto number = static_cast<std::uint32_t>(participant);
  const std::uint64_t high = chance(seed, kGuidUse, number, 0U);
  const std::uint64_t low = chance(seed, kGuidUse, number, 1U);
  std::array<char, 40> text = {};
  // Marked as random, as version 4 of these identifiers asks.
  std::snprintf(text.data(), text.size(), "%08x-%04x-4%03x-%04x-%012llx",
                static_cast<unsigned>(high >> 32), static_cast<unsigned>(high >> 16 & 0xffff),
                static_cast<unsigned>(high & 0xfff),
                static_cast<unsigned>(0x8000 | (low >> 48 & 0x3fff)),
                static_cast<unsigned long long>(low & 0xffff'ffff'ffff));
  return text.data();
}

std::string usualNameOf(std::uint32_t seed, int participant) {
  const std::uint64_t drawn = chance(seed, kNameUse);
  // With an odd step every name is used before one repeats.
  const std::uint64_t step = drawn >> 32 | 1;
  return kNames[(drawn + step * static_cast<std::uint64_t>(participant + 1)) % kNames.size()];
}

double hueOf(std::uint32_t seed, const StreamKey& key) {
  // Multiples of the golden ratio, modulo 1, are spread evenly.
  constexpr double kStep = 0.6180339887;
  const double start = Random(chance(seed, kHueUse)).nextFraction();
  const double turns = start + kStep * numberOf(key);
  return turns - static_cast<int>(turns);
}

}  // namespace embedded
