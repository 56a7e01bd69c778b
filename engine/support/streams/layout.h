// Which remote streams the application wants, and how.

#ifndef ENGINE_SUPPORT_STREAMS_LAYOUT_H_
#define ENGINE_SUPPORT_STREAMS_LAYOUT_H_

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "engine/support/pictures/picture.h"
#include "tesselclient/records.h"

namespace support {

// How a stream is received. Heights are those of the quality ladder, in pixels; 0 means no limit.
struct Reception {
  bool isWanted = true;
  std::uint32_t height = 0;   // asked for
  std::uint32_t lowest = 0;   // where no height is asked for
  std::uint32_t ceiling = 0;  // stands above all else
  std::uint32_t mostPerSecond = 0;

  bool operator==(const Reception&) const = default;
};

// The rungs of the quality ladder are 45, 90, 180, 360 and 720 pixels high, numbered from 0.
constexpr int kTopRung = 4;

// The application's wishes. Belongs to one thread.
class Layout {
 public:
  void setWishes(std::vector<tsl::VideoStreamInfo> streams,
                 std::vector<std::vector<tsl::VideoStreamConstraints>> constraints);
  // No stream is received above this rung; the top rung limits nothing.
  void setTopRung(int rung) { topRung_ = rung; }

  // The reception of each stream, named by its contributing source, when these are present. Until
  // there are wishes every stream is wanted without limits.
  //
  // A wish names a stream by its ssrc or its participantSsrc. The present wanted streams fill the
  // layout's tiles, those of the highest priority first, in the order of the wishes where it is
  // equal. There are as many tiles as streams, but at most as many as the table of constraints has
  // rows; streams without a tile are not received. Row n - 1 applies to n tiles, and its entries to
  // the tiles in their order; a missing entry limits nothing, nor does an empty table.
  std::map<std::uint32_t, Reception> receptions(const std::set<std::uint32_t>& present) const;

 private:
  Reception receptionWithin(const tsl::VideoStreamConstraints& limits) const;

  bool hasWishes_ = false;
  int topRung_ = kTopRung;
  std::vector<tsl::VideoStreamInfo> streams_;  // the highest priority first
  std::vector<std::vector<tsl::VideoStreamConstraints>> constraints_;
};

// The size at which a test card of a size of its own is received: its own or a rung, 16:9.
Size cardSize(Size own, const Reception& reception);
// The same for a clip, which keeps its shape and is never enlarged.
Size shapedSize(Size own, const Reception& reception);

}  // namespace support

#endif  // ENGINE_SUPPORT_STREAMS_LAYOUT_H_
