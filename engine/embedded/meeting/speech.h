// Who speaks when, and how loud.

#ifndef ENGINE_EMBEDDED_MEETING_SPEECH_H_
#define ENGINE_EMBEDDED_MEETING_SPEECH_H_

#include <cstdint>
#include <vector>

#include "engine/embedded/meeting/meeting_plan.h"
#include "engine/support/clock.h"

namespace embedded {

// The loudness of everybody in a meeting: as planned, or else people take turns of three seconds,
// drawn from the seed. Depends on nothing but its arguments.
class Speech {
 public:
  // `participants` is the number of those who take turns beside the local participant.
  Speech(std::uint64_t seed, int participants, std::vector<PlannedSpeech> plan);

  // 0 for silence, up to 100; changes ten times a second. `participant` may be kLocalParticipant.
  std::uint32_t level(int participant, support::Time sinceJoin) const;

 private:
  bool speaks(int participant, support::Time sinceJoin) const;

  const std::uint64_t seed_;
  const int participants_;
  const std::vector<PlannedSpeech> plan_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_SPEECH_H_
