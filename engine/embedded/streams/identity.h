// What tells the streams of a meeting apart.

#ifndef ENGINE_EMBEDDED_STREAMS_IDENTITY_H_
#define ENGINE_EMBEDDED_STREAMS_IDENTITY_H_

#include <cstdint>
#include <string>

#include "tesselclient/types.h"

namespace embedded {

// The contributing source of a stream: 24 bits drawn from the meeting's seed above a byte that
// tells the streams of one meeting apart (0 local, 1 content, 16 + number for a participant).
std::uint32_t csrcOf(std::uint32_t seed, const StreamKey& key);

// A participant's GUID, drawn from the meeting's seed.
std::string guidOf(std::uint32_t seed, int participant);

// The name that a participant has unless another is given, drawn from the meeting's seed. No two
// participants of a meeting have the same, nor has the local one (kLocalParticipant).
std::string usualNameOf(std::uint32_t seed, int participant);

// A stream's hue in turns of the colour circle. Neighbours differ clearly.
double hueOf(std::uint32_t seed, const StreamKey& key);

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_STREAMS_IDENTITY_H_
