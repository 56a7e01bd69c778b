// The meeting that a call's uri asks for.

#ifndef ENGINE_EMBEDDED_MEETING_MEETING_URI_H_
#define ENGINE_EMBEDDED_MEETING_MEETING_URI_H_

#include <string>

#include "engine/embedded/meeting/meeting_plan.h"

namespace embedded {

// docs/embedded-engine.md has the grammar. Throws JoinRefused with kBadUri for anything else.
MeetingPlan parseMeetingUri(const std::string& uri);

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_MEETING_MEETING_URI_H_
