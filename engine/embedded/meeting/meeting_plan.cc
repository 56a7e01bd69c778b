#include "engine/embedded/meeting/meeting_plan.h"

namespace embedded {

double MeetingPlan::lossOf(int participant) const {
  const auto found = losses.find(participant);
  return found == losses.end() ? loss : found->second;
}

}  // namespace embedded
