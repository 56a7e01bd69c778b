#include "engine/webrtc/opus_repair.h"

#include <array>

namespace webrtc {

bool hasRepairData(std::span<const std::uint8_t> packet) {
  if (packet.size() < 2) return false;
  const unsigned configuration = packet[0] >> 3U;
  const bool isStereo = (packet[0] & 4U) != 0;
  const bool isOneFrameOrTwoEqual = (packet[0] & 3U) < 2;
  // Packets of the other layer alone have no such data.
  constexpr unsigned kFirstWithoutSilk = 16;
  if (configuration >= kFirstWithoutSilk || !isOneFrameOrTwoEqual) return false;
  // Of 10, 20, 40 and 60 ms; with both layers, of 10 and 20.
  constexpr unsigned kFirstHybrid = 12;
  constexpr std::array kSilkFrames = {1U, 1U, 2U, 3U};
  const unsigned frames = configuration < kFirstHybrid ? kSilkFrames.at(configuration & 3U) : 1;
  // One bit for each frame and one for the repair data, for the middle and then for the side.
  const bool hasMiddle = ((unsigned{packet[1]} >> (7 - frames)) & 1U) != 0;
  const bool hasSide = isStereo && ((unsigned{packet[1]} >> (6 - 2 * frames)) & 1U) != 0;
  return hasMiddle || hasSide;
}

}  // namespace webrtc
