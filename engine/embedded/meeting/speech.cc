#include "engine/embedded/meeting/speech.h"

#include <algorithm>
#include <utility>

#include "engine/embedded/random.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;

constexpr support::Time kTurn = 3s;
constexpr support::Time kSyllable = 100ms;
constexpr std::uint32_t kQuietest = 40;
constexpr std::uint32_t kLoudest = 100;

// Keep the seed's different uses apart.
constexpr std::uint64_t kTurnUse = 1;
constexpr std::uint64_t kLevelUse = 2;

std::uint64_t countOf(support::Time whole, support::Time part) {
  return static_cast<std::uint64_t>(whole / part);
}

}  // namespace

Speech::Speech(std::uint64_t seed, int participants, std::vector<PlannedSpeech> plan)
    : seed_(seed), participants_(participants), plan_(std::move(plan)) {}

std::uint32_t Speech::level(int participant, support::Time sinceJoin) const {
  if (!speaks(participant, sinceJoin)) return 0;
  const std::uint64_t value = chance(seed_, kLevelUse, static_cast<std::uint64_t>(participant),
                                     countOf(sinceJoin, kSyllable));
  return kQuietest + static_cast<std::uint32_t>(value % (kLoudest - kQuietest + 1));
}

bool Speech::speaks(int participant, support::Time sinceJoin) const {
  if (!plan_.empty()) {
    return std::any_of(plan_.begin(), plan_.end(), [=](const PlannedSpeech& speech) {
      return speech.participant == participant && sinceJoin >= speech.from && sinceJoin < speech.to;
    });
  }
  const std::uint64_t value = chance(seed_, kTurnUse, countOf(sinceJoin, kTurn));
  // All remote participants, then the local one.
  const auto turn = static_cast<int>(value % (static_cast<std::uint64_t>(participants_) + 1));
  return participant == kLocalParticipant ? turn == participants_ : turn == participant;
}

}  // namespace embedded
