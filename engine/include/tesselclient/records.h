// The parameter and result records of the engine's operations.
//
// A record passed to the engine lives only until the operation returns: the engine copies what it
// keeps. The order of the fields is an ABI promise; test/native/engine/engine_abi_test.cc fixes it.

#ifndef TESSELCLIENT_RECORDS_H_
#define TESSELCLIENT_RECORDS_H_

#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tesselclient/types.h"

namespace tsl {

// How to create an engine. All texts are UTF-8.
struct CreateParams {
  std::string szUserAgent;   // announced to the meeting
  std::string szAppVersion;  // of the hosting application
  std::string szConfigPath;  // directory or file of the engine's configuration
  std::string szLogPath;     // directory in which the engine writes its logs
  std::string szLogPrefix;   // prefix of the log files' names
};

// What the local participant sends and receives.
struct MediaStreamState {
  bool outgoingAudioMuted = false;
  bool outgoingVideoMuted = false;
  bool incomingAudioEnabled = false;
  bool incomingVideoEnabled = false;
  bool contentStreamEnabled = false;
};

// One TURN relay server.
struct TurnServerInfo {
  std::string protocol;
  std::string address;
  std::string username;
  std::string password;
  std::string reservedText;  // left empty by callers
  std::string fqdn;
  std::int32_t port = 0;
  std::int32_t priority = 0;
  std::int32_t bandwidth = 0;
};

// How to join a call.
struct ConnectParams {
  std::string uri;
  std::string meetingGuid;
  std::string endpointName;
  std::string reservedText;  // left empty by callers
  std::unordered_set<std::string> meetingFeatures;
  std::vector<std::pair<std::string, bool>> gracefulEvents;  // event name, enabled
  std::int32_t maxBandwidth = 0;
  MediaStreamState mediaStreamState;
  bool forceTurn = false;
  std::vector<TurnServerInfo> turnServers;
  bool enableRdc = false;
  bool isVesperMeeting = false;
  bool enableClientDrivenLayouts = false;
  bool enableClientLayoutOrdering = false;
  std::string meetingAttributes;
};

struct AudioInDevice {
  std::string id;
  std::string name;
  std::string sourceName;
};

struct AudioOutDevice {
  std::string id;
  std::string name;
  std::string sourceName;
};

struct VideoDevice {
  std::string id;
  std::string name;
  std::int32_t width = 1280;  // of the capture, pixels
  std::int32_t height = 720;  // of the capture, pixels
  std::int32_t maxFps = 30;   // frames per second
};

struct DeviceSelectionParams {
  VideoDevice videoDevice;
  AudioInDevice audioInDevice;
  AudioOutDevice audioOutDevice;
};

struct AudioDeviceStats {
  bool isSpeakerMuted = false;
  float speakerVolume = 0;
  bool isMicMuted = false;
  float micVolume = 0;
};

enum class ShareType : std::int32_t {
  kScreen = 0,
  kApplication = 1,
  kWindow = 2,
};

// What to share. The identifier that matters is the one of the share type.
struct ContentShareParams {
  ShareType type = ShareType::kScreen;
  std::int32_t screenId = -1;
  std::int32_t applicationId = -1;
  std::int32_t windowId = -1;
  bool engineFlag = true;  // the engine's own; callers send true
};

// Position and size of one monitor, in pixels of the desktop's coordinate space.
struct ScreenMonitor {
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t engineValue = 0;  // the engine's own
};

// One wanted remote video stream.
struct VideoStreamInfo {
  std::uint32_t ssrc = 0;
  std::uint32_t participantSsrc = 0;
  std::uint16_t speakerGroup = 0;
  std::uint16_t priority = 0;
};

// Limits for one video tile; 0 means not given. Quality is the picture height of a rung of the
// ladder (45, 90, 180, 360, 720), the frame rate is in frames per second.
struct VideoStreamConstraints {
  std::uint32_t maxQuality = 0;
  std::uint32_t maxFrameRate = 0;
  std::uint32_t minQuality = 0;
  std::uint32_t minFrameRate = 0;
};

struct VideoStats {
  std::int32_t width = 0;                 // pixels
  std::int32_t height = 0;                // pixels
  std::int32_t totalBitrateBps = 0;       // bits per second
  double fractionLost = 0;                // 0 to 1
  std::uint32_t cumulativeLost = 0;       // packets
  std::int32_t delayMs = 0;               // pacer delay (sent), target delay (received)
  std::int32_t fps = 0;                   // frames per second
  std::int32_t rtxRecoveredPackets = 0;   // by retransmission
  std::int32_t fecRecoveredPackets = 0;   // by forward error correction
  std::int32_t retransmitBitrateBps = 0;  // bits per second
};

struct AudioStats {
  double transmitLevel = 0;
  double outputLevel = 0;
  double snr = 0;
  std::uint32_t downlinkJitter = 0;
  std::uint32_t uplinkJitter = 0;
  std::uint32_t downlinkPacketLossCount = 0;
  std::uint32_t uplinkPacketLossCount = 0;
  std::uint32_t downlinkPacketCorrectedCount = 0;
  std::uint32_t uplinkPacketCorrectedCount = 0;
  std::uint64_t downlinkPayloadBytes = 0;
  std::uint64_t uplinkPayloadBytes = 0;
};

// A snapshot of the meeting's statistics. The maps are keyed and ordered by SSRC.
struct MeetingStats {
  std::int32_t systemCpu = 0;
  std::int32_t processCpu = 0;
  std::int32_t inboundBweBps = 0;
  std::int32_t outboundBweBps = 0;
  std::int32_t totalInboundBps = 0;
  std::int32_t totalOutboundBps = 0;
  std::int32_t sendTmmbrBitrate = 0;
  float instantInboundLoss = 0;
  float instantOutboundLoss = 0;
  std::map<std::uint32_t, VideoStats> videoSend;
  VideoStats contentSend;
  std::map<std::uint32_t, VideoStats> videoReceive;
  VideoStats contentReceive;
  AudioStats audio;
};

}  // namespace tsl

#endif  // TESSELCLIENT_RECORDS_H_
