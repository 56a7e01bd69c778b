// What a connection has counted of RTP packets.

#ifndef ENGINE_WEBRTC_RTP_COUNTS_H_
#define ENGINE_WEBRTC_RTP_COUNTS_H_

#include <gst/gst.h>

#include <cstdint>
#include <map>

#include "engine/webrtc/glib.h"

namespace webrtc {

// Of the packets of one SSRC, since the first of them.
struct SourceCounts {
  bool isOwn = false;  // sent by us
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;  // of the packets with their headers of RTP
  std::uint64_t payloadBytes = 0;
  std::uint32_t clockRate = 0;
  // Of received ones only.
  double jitterMs = 0;
  std::uint64_t repaired = 0;       // lost by the network, and sent again in time
  std::uint64_t missing = 0;        // lost by the network, and not sent again in time
  std::uint32_t longestWaitMs = 0;  // of the jitter buffer, for a packet that is late
};

// What the receiver reports of the packets of one SSRC of ours.
struct ReceiverReport {
  double fractionLost = 0;  // since its report before
  std::uint32_t lost = 0;
  double jitterMs = 0;
};

// Both by the SSRC.
struct RtpCounts {
  std::map<std::uint32_t, SourceCounts> sources;
  std::map<std::uint32_t, ReceiverReport> reports;
};

using JitterBuffers = std::map<std::uint32_t, ObjectPtr<GstElement>>;

// The present counts of an RTPSession and of the jitter buffers behind it, by their SSRC. May be
// called from any thread.
RtpCounts countsOf(GObject* session, const JitterBuffers& jitterBuffers);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_RTP_COUNTS_H_
