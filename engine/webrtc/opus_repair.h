// Repair data in packets of Opus.

#ifndef ENGINE_WEBRTC_OPUS_REPAIR_H_
#define ENGINE_WEBRTC_OPUS_REPAIR_H_

#include <cstdint>
#include <span>

namespace webrtc {

// Whether the packet has the data that replaces the packet before it (in-band FEC), by RFC 6716,
// section 4.2.4. False for packets of several frames of any length, which nobody sends in a call.
bool hasRepairData(std::span<const std::uint8_t> packet);

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_OPUS_REPAIR_H_
