// What lies in the segments, byte by byte. Two processes on one machine share it, and may have been
// built separately: sizes and offsets never change. Integers are in the machine's byte order.

#ifndef ADDON_SHAREDMEM_SHARED_MEMORY_LAYOUT_H_
#define ADDON_SHAREDMEM_SHARED_MEMORY_LAYOUT_H_

#include <cstddef>
#include <cstdint>

namespace sharedmem {

// The start of a frame segment. The pixel space follows it directly.
struct SharedFrameHeader {
  std::uint8_t reservedAtCreation;  // set to 0 when the segment is created
  std::uint8_t reservedOnStore;     // set to 0 on every store
  std::uint8_t clearFrame;          // set to 0 on every store; handed out with the frame
  std::uint8_t padding[5];
  std::uint64_t sequence;     // of the stored frame, from 0
  std::uint32_t csrc;         // RTP contributing source
  std::uint32_t width;        // pixels
  std::uint32_t height;       // pixels
  std::uint32_t frameValueA;  // the engine's own; never read back
  std::uint32_t frameValueB;  // the engine's own; never read back
  std::uint32_t frameValueC;  // the engine's own; never read back
};
static_assert(sizeof(SharedFrameHeader) == 40);
static_assert(offsetof(SharedFrameHeader, reservedAtCreation) == 0);
static_assert(offsetof(SharedFrameHeader, reservedOnStore) == 1);
static_assert(offsetof(SharedFrameHeader, clearFrame) == 2);
static_assert(offsetof(SharedFrameHeader, sequence) == 8);
static_assert(offsetof(SharedFrameHeader, csrc) == 16);
static_assert(offsetof(SharedFrameHeader, width) == 20);
static_assert(offsetof(SharedFrameHeader, height) == 24);
static_assert(offsetof(SharedFrameHeader, frameValueA) == 28);
static_assert(offsetof(SharedFrameHeader, frameValueB) == 32);
static_assert(offsetof(SharedFrameHeader, frameValueC) == 36);

// Bytes for one frame's planes. A 4:2:0 frame takes 3/2 bytes for each pixel, so 1280 x 720 fits
// and 1920 x 1080 does not.
inline constexpr std::uint32_t kPixelSpace = 1920 * 1080;
inline constexpr std::uint32_t kFrameSegmentSize = sizeof(SharedFrameHeader) + kPixelSpace;
static_assert(kFrameSegmentSize == 2'073'640);

// One stream's place in the main segment.
struct SharedStreamEntry {
  std::uint8_t valid;  // 1 while the stream's frame segment exists, else 0
  char shmName[255];   // of the frame segment, NUL-terminated
  char semName[255];   // of its semaphore, NUL-terminated
};
static_assert(sizeof(SharedStreamEntry) == 511);
static_assert(alignof(SharedStreamEntry) == 1, "entries follow each other without a gap");
static_assert(offsetof(SharedStreamEntry, valid) == 0);
static_assert(offsetof(SharedStreamEntry, shmName) == 1);
static_assert(offsetof(SharedStreamEntry, semName) == 256);

// The main segment: the local stream, the content stream, then the remote streams by index.
inline constexpr std::size_t kLocalStreamEntry = 0;
inline constexpr std::size_t kContentStreamEntry = 1;
inline constexpr std::size_t kFirstRemoteStreamEntry = 2;
inline constexpr int kRemoteStreams = 50;
inline constexpr std::size_t kStreamEntries = kFirstRemoteStreamEntry + kRemoteStreams;
inline constexpr std::uint32_t kMainSegmentSize = kStreamEntries * sizeof(SharedStreamEntry);
static_assert(kMainSegmentSize == 26'572);

// Reads a field that another process may be changing, exactly once: what is checked is what is
// used.
template <typename T>
T readOnce(const T& field) {
  return static_cast<const volatile T&>(field);
}

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_SHARED_MEMORY_LAYOUT_H_
