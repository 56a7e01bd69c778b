// What receivers of RTP send back.

#ifndef ENGINE_WEBRTC_FEEDBACK_H_
#define ENGINE_WEBRTC_FEEDBACK_H_

#include <gst/gst.h>

#include <cstdint>
#include <optional>

namespace webrtc {

// Moves the report of the packets with this SSRC to the front of a compound packet of RTCP that
// begins with a receiver report. Without such a report nothing changes.
//
// The server takes a whole compound packet for feedback on the medium of its first report: requests
// for packets and for key frames of the video are lost when that is the audio's.
void putReportFirst(GstBuffer* compound, std::uint32_t ssrc);

// The bits per second of a REMB, by what follows the SSRCs of a packet of feedback; nothing when it
// is something else.
std::optional<std::uint32_t> grantedRateOf(GstBuffer* feedback);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_FEEDBACK_H_
