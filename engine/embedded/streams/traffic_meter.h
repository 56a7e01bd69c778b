// What a stream carried.

#ifndef ENGINE_EMBEDDED_STREAMS_TRAFFIC_METER_H_
#define ENGINE_EMBEDDED_STREAMS_TRAFFIC_METER_H_

#include <cstddef>
#include <cstdint>

#include "engine/support/clock.h"
#include "engine/support/pictures/picture.h"
#include "tesselclient/records.h"

namespace embedded {

// A count of bits, or of bits per second, cut to what its field holds.
std::int32_t toBits(double bits);

// Counts the frames and packets of one stream, altogether and in windows of time. Belongs to one
// thread.
class TrafficMeter {
 public:
  struct Window {
    tsl::VideoStats stats;
    std::uint64_t bytes = 0;    // of the frames that arrived
    std::uint64_t packets = 0;  // sent
    std::uint64_t lostPackets = 0;
  };

  // A frame arrived as a whole.
  void addFrame(support::Size size, std::size_t bytes, std::uint64_t packets);
  // A frame did not arrive, because packets of it were lost.
  void addLostFrame(std::uint64_t packets, std::uint64_t lostPackets);

  // What was counted since the last call, in a window of this length; a new window begins.
  Window closeWindow(support::Time length);

 private:
  support::Size size_;  // of the newest frame
  std::uint64_t frames_ = 0;
  Window window_;
  std::uint64_t lostPackets_ = 0;  // altogether
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_STREAMS_TRAFFIC_METER_H_
