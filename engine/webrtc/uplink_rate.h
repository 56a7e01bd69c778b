// How much of a video the way to the server takes.

#ifndef ENGINE_WEBRTC_UPLINK_RATE_H_
#define ENGINE_WEBRTC_UPLINK_RATE_H_

#include <cstdint>
#include <map>
#include <optional>

#include "engine/webrtc/rtp_counts.h"

namespace webrtc {

// The bits per second of a video in all its layers: less by the share that is lost when much is
// lost, more by equal steps when hardly anything is. Belongs to the engine's thread.
class UplinkRate {
 public:
  // Called once a second, with the newest reports by the SSRC of what was sent, and the most bits
  // per second that are of use. These it is until much is lost.
  std::uint32_t update(const std::map<std::uint32_t, ReceiverReport>& reports, std::uint32_t most);

 private:
  std::optional<double> limit_;                  // nothing while nothing is lost
  std::map<std::uint32_t, std::uint32_t> lost_;  // packets, as reported before
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_UPLINK_RATE_H_
