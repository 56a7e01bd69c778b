// The keys of the streams that an engine makes.

#ifndef ENGINE_SUPPORT_STREAMS_STREAM_KEYS_H_
#define ENGINE_SUPPORT_STREAMS_STREAM_KEYS_H_

#include "tesselclient/types.h"

namespace support {

constexpr StreamKey kLocalStream = {TSLM_STREAM_LOCAL, 0};
constexpr StreamKey kContentStream = {TSLM_STREAM_CONTENT, 0};
constexpr StreamKey remoteStream(int participant) { return {TSLM_STREAM_REMOTE, participant}; }

}  // namespace support

#endif  // ENGINE_SUPPORT_STREAMS_STREAM_KEYS_H_
