// Plain enumerations and the stream key that the engine and its callers share.
//
// Every enumeration has a fixed underlying type: a newer engine may send a value that is not listed
// here, and receivers must answer an unknown value as "unnamed", never as undefined behaviour.

#ifndef TESSELCLIENT_TYPES_H_
#define TESSELCLIENT_TYPES_H_

#include <cstdint>
#include <utility>

// Marks what an engine library exports and what both sides of the interface must agree on.
#define TESSELCLIENT_API __attribute__((visibility("default")))

// The kind of a media stream. Crosses process boundaries in segment names: values never change.
enum TSLM_STREAM_INDEX : std::int32_t {
  TSLM_STREAM_LOCAL = 0,
  TSLM_STREAM_REMOTE = 1,
  TSLM_STREAM_CONTENT = 2,
};

// Names one media stream: its kind, and an index that tells streams of one kind apart.
using StreamKey = std::pair<TSLM_STREAM_INDEX, int>;

// Progress of sharing local content. Value 5 has no name in the interface.
enum class ShareStatus : std::int32_t {
  kStarted = 0,
  kFailed = 1,
  kDenied = 2,
  kTokenGranted = 3,
  kTokenDenied = 4,
  kStopped = 6,
  kTokenRelinquished = 7,
};

enum class MediaType : std::int32_t {
  kVideo = 0,
  kAudio = 1,
  kContent = 2,
};

// Value 0 has no name in the interface.
enum class DeviceType : std::int32_t {
  kVideo = 1,
  kAudioIn = 2,
  kAudioOut = 3,
};

// Rung of the video quality ladder that the engine allows for viewing, 0 the lowest.
enum class VSPVoQualityIndex : std::int32_t {
  k45p = 0,
  k90p = 1,
  k180p = 2,
  k360p = 3,
  k720p = 4,
};

#endif  // TESSELCLIENT_TYPES_H_
