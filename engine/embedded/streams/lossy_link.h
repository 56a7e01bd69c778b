// The network between a sender and the application.

#ifndef ENGINE_EMBEDDED_STREAMS_LOSSY_LINK_H_
#define ENGINE_EMBEDDED_STREAMS_LOSSY_LINK_H_

#include <cstddef>
#include <cstdint>

#include "engine/embedded/random.h"

namespace embedded {

constexpr std::size_t kPacketBytes = 1200;

constexpr std::uint64_t packetsOf(std::size_t bytes) {
  return (bytes + kPacketBytes - 1) / kPacketBytes;
}

// Loses packets in bursts, as a congested network does: a burst takes all packets while it lasts,
// 100 on average. Belongs to one thread.
class LossyLink {
 public:
  // `lossRate` is the fraction of packets lost in the long run, 0 to 1.
  LossyLink(double lossRate, std::uint64_t seed);

  // Sends packets; returns how many of them were lost.
  std::uint64_t send(std::uint64_t packets);

 private:
  const double burstBegins_;  // chance before each packet
  const double burstEnds_;
  Random random_;
  bool isBurst_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_STREAMS_LOSSY_LINK_H_
