// The fields of the engine interface's records, by name: written once here, used for turning a
// record into a value and back.

#ifndef TEST_ENGINE_RECORD_FIELDS_H_
#define TEST_ENGINE_RECORD_FIELDS_H_

#include "tesselclient/tesselclient.h"

namespace scripted {

// Specialised for every record: list() calls `field(name, member)` for each of its fields, in
// order.
template <typename Type>
struct Fields;

#define LISTED(name) field(#name, record.name)

template <>
struct Fields<tsl::CreateParams> {
  static void list(auto& record, auto&& field) {
    LISTED(szUserAgent);
    LISTED(szAppVersion);
    LISTED(szConfigPath);
    LISTED(szLogPath);
    LISTED(szLogPrefix);
  }
};

template <>
struct Fields<tsl::MediaStreamState> {
  static void list(auto& record, auto&& field) {
    LISTED(outgoingAudioMuted);
    LISTED(outgoingVideoMuted);
    LISTED(incomingAudioEnabled);
    LISTED(incomingVideoEnabled);
    LISTED(contentStreamEnabled);
  }
};

template <>
struct Fields<tsl::TurnServerInfo> {
  static void list(auto& record, auto&& field) {
    LISTED(protocol);
    LISTED(address);
    LISTED(username);
    LISTED(password);
    LISTED(reservedText);
    LISTED(fqdn);
    LISTED(port);
    LISTED(priority);
    LISTED(bandwidth);
  }
};

template <>
struct Fields<tsl::ConnectParams> {
  static void list(auto& record, auto&& field) {
    LISTED(uri);
    LISTED(meetingGuid);
    LISTED(endpointName);
    LISTED(reservedText);
    LISTED(meetingFeatures);
    LISTED(gracefulEvents);
    LISTED(maxBandwidth);
    LISTED(mediaStreamState);
    LISTED(forceTurn);
    LISTED(turnServers);
    LISTED(enableRdc);
    LISTED(isVesperMeeting);
    LISTED(enableClientDrivenLayouts);
    LISTED(enableClientLayoutOrdering);
    LISTED(meetingAttributes);
  }
};

template <>
struct Fields<tsl::AudioInDevice> {
  static void list(auto& record, auto&& field) {
    LISTED(id);
    LISTED(name);
    LISTED(sourceName);
  }
};

template <>
struct Fields<tsl::AudioOutDevice> {
  static void list(auto& record, auto&& field) {
    LISTED(id);
    LISTED(name);
    LISTED(sourceName);
  }
};

template <>
struct Fields<tsl::VideoDevice> {
  static void list(auto& record, auto&& field) {
    LISTED(id);
    LISTED(name);
    LISTED(width);
    LISTED(height);
    LISTED(maxFps);
  }
};

template <>
struct Fields<tsl::DeviceSelectionParams> {
  static void list(auto& record, auto&& field) {
    LISTED(videoDevice);
    LISTED(audioInDevice);
    LISTED(audioOutDevice);
  }
};

template <>
struct Fields<tsl::AudioDeviceStats> {
  static void list(auto& record, auto&& field) {
    LISTED(isSpeakerMuted);
    LISTED(speakerVolume);
    LISTED(isMicMuted);
    LISTED(micVolume);
  }
};

template <>
struct Fields<tsl::ContentShareParams> {
  static void list(auto& record, auto&& field) {
    LISTED(type);
    LISTED(screenId);
    LISTED(applicationId);
    LISTED(windowId);
    LISTED(engineFlag);
  }
};

template <>
struct Fields<tsl::ScreenMonitor> {
  static void list(auto& record, auto&& field) {
    LISTED(x);
    LISTED(y);
    LISTED(width);
    LISTED(height);
    LISTED(engineValue);
  }
};

template <>
struct Fields<tsl::VideoStreamInfo> {
  static void list(auto& record, auto&& field) {
    LISTED(ssrc);
    LISTED(participantSsrc);
    LISTED(speakerGroup);
    LISTED(priority);
  }
};

template <>
struct Fields<tsl::VideoStreamConstraints> {
  static void list(auto& record, auto&& field) {
    LISTED(maxQuality);
    LISTED(maxFrameRate);
    LISTED(minQuality);
    LISTED(minFrameRate);
  }
};

template <>
struct Fields<tsl::VideoStats> {
  static void list(auto& record, auto&& field) {
    LISTED(width);
    LISTED(height);
    LISTED(totalBitrateBps);
    LISTED(fractionLost);
    LISTED(cumulativeLost);
    LISTED(delayMs);
    LISTED(fps);
    LISTED(rtxRecoveredPackets);
    LISTED(fecRecoveredPackets);
    LISTED(retransmitBitrateBps);
  }
};

template <>
struct Fields<tsl::AudioStats> {
  static void list(auto& record, auto&& field) {
    LISTED(transmitLevel);
    LISTED(outputLevel);
    LISTED(snr);
    LISTED(downlinkJitter);
    LISTED(uplinkJitter);
    LISTED(downlinkPacketLossCount);
    LISTED(uplinkPacketLossCount);
    LISTED(downlinkPacketCorrectedCount);
    LISTED(uplinkPacketCorrectedCount);
    LISTED(downlinkPayloadBytes);
    LISTED(uplinkPayloadBytes);
  }
};

template <>
struct Fields<tsl::MeetingStats> {
  static void list(auto& record, auto&& field) {
    LISTED(systemCpu);
    LISTED(processCpu);
    LISTED(inboundBweBps);
    LISTED(outboundBweBps);
    LISTED(totalInboundBps);
    LISTED(totalOutboundBps);
    LISTED(sendTmmbrBitrate);
    LISTED(instantInboundLoss);
    LISTED(instantOutboundLoss);
    LISTED(videoSend);
    LISTED(contentSend);
    LISTED(videoReceive);
    LISTED(contentReceive);
    LISTED(audio);
  }
};

template <>
struct Fields<StreamKey> {
  static void list(auto& record, auto&& field) {
    field("kind", record.first);
    field("index", record.second);
  }
};

}  // namespace scripted

#endif  // TEST_ENGINE_RECORD_FIELDS_H_
