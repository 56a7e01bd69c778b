// Fixes the binary interface between the addon and an engine library: the slot of every virtual
// operation, the layout of every record, and the value of every enumerator. An engine that was
// built from other headers is put in place without recompiling, so none of these may move.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tesselclient/tesselclient.h"
#include "test/native/support/idle_engine.h"

namespace {

using QVXCommon::IVideoFrame;

// ---- Slots

struct Slot {
  const char* operation;
  std::size_t found;
  std::size_t promised;
};

// The vtable slot that a call of the virtual operation `operation` goes through. A pointer to a
// virtual member function holds one more than the slot's offset in bytes.
template <typename Operation>
requires std::is_member_function_pointer_v<Operation> std::size_t slotOf(Operation operation) {
  struct {
    std::uintptr_t function;
    std::ptrdiff_t adjustment;
  } representation;
  static_assert(sizeof representation == sizeof operation);
  std::memcpy(&representation, &operation, sizeof operation);
  EXPECT_EQ(representation.function % sizeof(void*), 1U) << "not a virtual operation";
  return (representation.function - 1) / sizeof(void*);
}

void expectSlots(const std::vector<Slot>& slots) {
  for (const Slot& slot : slots) EXPECT_EQ(slot.found, slot.promised) << slot.operation;
}

using SlotFunction = void (*)(void*);

SlotFunction functionInSlot(void* object, std::size_t slot) {
  SlotFunction* vtable = nullptr;
  std::memcpy(&vtable, object, sizeof vtable);
  return vtable[slot];
}

// Calls the functions in the first two slots of an object of `Concrete`, whose destructor sets the
// flag that it was constructed with.
template <typename Concrete>
void expectDestructorsInTheFirstTwoSlots() {
  alignas(Concrete) unsigned char storage[sizeof(Concrete)];
  bool destroyed = false;
  auto* inPlace = new (storage) Concrete(destroyed);
  functionInSlot(inPlace, 0)(inPlace);
  EXPECT_TRUE(destroyed);

  destroyed = false;
  auto* onHeap = new Concrete(destroyed);
  // Leaves the memory to the leak check if it does not delete.
  functionInSlot(onHeap, 1)(onHeap);
  EXPECT_TRUE(destroyed);
}

// Concrete classes that record their destruction.

class Callback final : public INotifyCallback {
 public:
  explicit Callback(bool& destroyed) : destroyed_(destroyed) {}
  ~Callback() override { destroyed_ = true; }
  void NotifyInitCompleted() override {}
  void NotifyStreamAdded(std::pair<TSLM_STREAM_INDEX, int>, unsigned int) override {}
  void NotifyStreamRemoved(std::pair<TSLM_STREAM_INDEX, int>, unsigned int) override {}
  void NotifyStreamUpdated(std::pair<TSLM_STREAM_INDEX, int>, unsigned int) override {}
  void NotifyGracefulEvent(std::string, bool) override {}
  void NotifyCallConnectionStatus(bool) override {}
  void NotifyScreenShareStatus(ShareStatus) override {}
  void NotifyContentReceiveStatus(bool, std::string) override {}
  void NotifyCallDisconnect(int, std::string, int) override {}
  void NotifyMediaMuteState(MediaType, bool) override {}
  void NotifyMicLevel(unsigned int) override {}
  void NotifyRtpMediaState(MediaType, bool) override {}
  void NotifyDeviceChange(std::string, DeviceType) override {}
  void NotifyEvent(const std::string&, const std::string&) override {}
  void NotifyUpdateVOQualityIndex(VSPVoQualityIndex) override {}

 private:
  bool& destroyed_;
};

class FrameManager final : public IFrameManager {
 public:
  explicit FrameManager(bool& destroyed) : destroyed_(destroyed) {}
  ~FrameManager() override { destroyed_ = true; }
  void GetFrame(std::uint32_t, VideoFrame&) override {}
  void ReleaseFrame(std::int64_t) override {}
  void EnableFrameCapture() override {}
  void DisableFrameCapture() override {}
  void SetFrameReceiver(std::shared_ptr<IFrameRecieveCallback>) override {}

 private:
  bool& destroyed_;
};

class FrameReceiver final : public IFrameRecieveCallback {
 public:
  explicit FrameReceiver(bool& destroyed) : destroyed_(destroyed) {}
  ~FrameReceiver() override { destroyed_ = true; }
  void NotifyFrameArrived(std::shared_ptr<IVideoFrame>, unsigned int, const StreamKey&) override {}

 private:
  bool& destroyed_;
};

class Configuration final : public ConfigData {
 public:
  explicit Configuration(bool& destroyed) : destroyed_(destroyed) {}
  ~Configuration() override { destroyed_ = true; }
  bool isVesperCapable() override { return false; }
  std::int32_t maxVOQualityIndex() override { return 0; }
  void update(const std::string&) override {}

 private:
  bool& destroyed_;
};

class Picture final : public IVideoFrame {
 public:
  explicit Picture(bool& destroyed) : destroyed_(destroyed) {}
  ~Picture() override { destroyed_ = true; }
  std::uint32_t frameWidth() const override { return 0; }
  std::uint32_t frameHeight() const override { return 0; }
  const std::uint8_t* frameBuffer() const override { return nullptr; }
  std::uint32_t frameValueA() const override { return 0; }
  std::uint32_t frameValueB() const override { return 0; }
  std::uint32_t frameValueC() const override { return 0; }
  std::uint64_t frameBufferSize() const override { return 0; }

 private:
  bool& destroyed_;
};

class Manager final : public test::IdleEngine {
 public:
  explicit Manager(bool& destroyed) : destroyed_(destroyed) {}
  ~Manager() override { destroyed_ = true; }

 private:
  bool& destroyed_;
};

#define SLOT(type, operation, promised) \
  Slot { #operation, slotOf(&type::operation), promised }

TEST(EngineAbi, EveryAbstractClassHasItsDestructorsInTheFirstTwoSlots) {
  expectDestructorsInTheFirstTwoSlots<Callback>();
  expectDestructorsInTheFirstTwoSlots<FrameManager>();
  expectDestructorsInTheFirstTwoSlots<FrameReceiver>();
  expectDestructorsInTheFirstTwoSlots<Configuration>();
  expectDestructorsInTheFirstTwoSlots<Picture>();
  expectDestructorsInTheFirstTwoSlots<Manager>();
}

TEST(EngineAbi, TheNotificationsKeepTheirSlots) {
  expectSlots({
      SLOT(Callback, NotifyInitCompleted, 2),
      SLOT(Callback, NotifyStreamAdded, 3),
      SLOT(Callback, NotifyStreamRemoved, 4),
      SLOT(Callback, NotifyStreamUpdated, 5),
      SLOT(Callback, NotifyGracefulEvent, 6),
      SLOT(Callback, NotifyCallConnectionStatus, 7),
      SLOT(Callback, NotifyScreenShareStatus, 8),
      SLOT(Callback, NotifyContentReceiveStatus, 9),
      SLOT(Callback, NotifyCallDisconnect, 10),
      SLOT(Callback, NotifyMediaMuteState, 11),
      SLOT(Callback, NotifyMicLevel, 12),
      SLOT(Callback, NotifyRtpMediaState, 13),
      SLOT(Callback, NotifyDeviceChange, 14),
      SLOT(Callback, NotifyEvent, 15),
      SLOT(Callback, NotifyUpdateVOQualityIndex, 16),
  });
}

TEST(EngineAbi, TheFrameManagersOperationsKeepTheirSlots) {
  expectSlots({
      SLOT(FrameManager, GetFrame, 2),
      SLOT(FrameManager, ReleaseFrame, 3),
      SLOT(FrameManager, EnableFrameCapture, 4),
      SLOT(FrameManager, DisableFrameCapture, 5),
      SLOT(FrameManager, ReservedSlot6, 6),
      SLOT(FrameManager, ReservedSlot7, 7),
      SLOT(FrameManager, SetFrameReceiver, 8),
  });
}

TEST(EngineAbi, TheFrameReceiversOperationKeepsItsSlot) {
  expectSlots({SLOT(FrameReceiver, NotifyFrameArrived, 2)});
}

TEST(EngineAbi, TheConfigurationsOperationsKeepTheirSlots) {
  expectSlots({
      SLOT(Configuration, isVesperCapable, 2),
      SLOT(Configuration, maxVOQualityIndex, 3),
      SLOT(Configuration, update, 4),
  });
}

TEST(EngineAbi, TheVideoFramesOperationsKeepTheirSlots) {
  expectSlots({
      SLOT(Picture, frameWidth, 2),
      SLOT(Picture, frameHeight, 3),
      SLOT(Picture, frameBuffer, 4),
      SLOT(Picture, frameValueA, 5),
      SLOT(Picture, frameValueB, 6),
      SLOT(Picture, frameValueC, 7),
      SLOT(Picture, frameBufferSize, 8),
  });
}

TEST(EngineAbi, TheFacadesOperationsKeepTheirSlots) {
  expectSlots({
      SLOT(Manager, RegisterNotifyCallback, 2),
      SLOT(Manager, Initialize, 3),
      SLOT(Manager, DeInitialize, 4),
      SLOT(Manager, ConnectCall, 5),
      SLOT(Manager, DisconnectCall, 6),
      SLOT(Manager, MuteLocalVideo, 7),
      SLOT(Manager, MuteLocalAudio, 8),
      SLOT(Manager, SetRemoteAudioMute, 9),
      SLOT(Manager, EnableCameraCapture, 10),
      SLOT(Manager, SetAudioDebug, 11),
      SLOT(Manager, UpdateMediaStreamState, 12),
      SLOT(Manager, SetAudioInDevice, 13),
      SLOT(Manager, SetAudioOutDevice, 14),
      SLOT(Manager, SetVideoDevice, 15),
      SLOT(Manager, SelectDevices, 16),
      SLOT(Manager, SendAudioDeviceStats, 17),
      SLOT(Manager, StartPresentation, 18),
      SLOT(Manager, StopPresentation, 19),
      SLOT(Manager, RequestContentShareToken, 20),
      SLOT(Manager, ReleaseContentShareToken, 21),
      SLOT(Manager, GetScreenMonitorDetails, 22),
      SLOT(Manager, UpdateVideoStreamsState, 23),
      SLOT(Manager, ConfigureMeetingStats, 24),
      SLOT(Manager, GetMeetingStats, 25),
      SLOT(Manager, GetRequiredMeetingAttributes, 26),
      SLOT(Manager, GetConfigDataPtr, 27),
      SLOT(Manager, RegisterEvent, 28),
      SLOT(Manager, UnregisterEvent, 29),
      SLOT(Manager, GetFrameManager, 30),
  });
}

// ---- Layouts

struct FieldPlace {
  const char* field;
  std::size_t offset;
  std::size_t size;
  std::size_t alignment;
};

std::size_t alignedUp(std::size_t offset, std::size_t alignment) {
  return (offset + alignment - 1) / alignment * alignment;
}

// Each field directly follows the previous one, so the list names every field in order.
template <typename Record>
void expectLayout(const std::vector<FieldPlace>& fields) {
  std::size_t end = 0;
  for (const FieldPlace& field : fields) {
    EXPECT_EQ(field.offset, alignedUp(end, field.alignment)) << field.field;
    end = field.offset + field.size;
  }
  EXPECT_EQ(sizeof(Record), alignedUp(end, alignof(Record))) << "the last field is not listed";
}

// The offset of `field` in `record`, and a check that it has the specified type.
#define FIELD(record, field, type)                                        \
  [] {                                                                    \
    static_assert(std::is_same_v<decltype(record::field), type>, #field); \
    const record object{};                                                \
    const auto offset = reinterpret_cast<std::uintptr_t>(&object.field) - \
                        reinterpret_cast<std::uintptr_t>(&object);        \
    return FieldPlace{#field, offset, sizeof(type), alignof(type)};       \
  }()

using Text = std::string;
using FrameReference = std::shared_ptr<IVideoFrame>;
using PixelPointer = const std::uint8_t*;
using TextSet = std::unordered_set<std::string>;
using SwitchList = std::vector<std::pair<std::string, bool>>;
using TurnServerList = std::vector<tsl::TurnServerInfo>;
using VideoStatsBySsrc = std::map<std::uint32_t, tsl::VideoStats>;

TEST(EngineAbi, CreateParamsKeepsItsLayout) {
  expectLayout<tsl::CreateParams>({
      FIELD(tsl::CreateParams, szUserAgent, Text),
      FIELD(tsl::CreateParams, szAppVersion, Text),
      FIELD(tsl::CreateParams, szConfigPath, Text),
      FIELD(tsl::CreateParams, szLogPath, Text),
      FIELD(tsl::CreateParams, szLogPrefix, Text),
  });
}

TEST(EngineAbi, MediaStreamStateKeepsItsLayout) {
  expectLayout<tsl::MediaStreamState>({
      FIELD(tsl::MediaStreamState, outgoingAudioMuted, bool),
      FIELD(tsl::MediaStreamState, outgoingVideoMuted, bool),
      FIELD(tsl::MediaStreamState, incomingAudioEnabled, bool),
      FIELD(tsl::MediaStreamState, incomingVideoEnabled, bool),
      FIELD(tsl::MediaStreamState, contentStreamEnabled, bool),
  });
}

TEST(EngineAbi, TurnServerInfoKeepsItsLayout) {
  expectLayout<tsl::TurnServerInfo>({
      FIELD(tsl::TurnServerInfo, protocol, Text),
      FIELD(tsl::TurnServerInfo, address, Text),
      FIELD(tsl::TurnServerInfo, username, Text),
      FIELD(tsl::TurnServerInfo, password, Text),
      FIELD(tsl::TurnServerInfo, reservedText, Text),
      FIELD(tsl::TurnServerInfo, fqdn, Text),
      FIELD(tsl::TurnServerInfo, port, std::int32_t),
      FIELD(tsl::TurnServerInfo, priority, std::int32_t),
      FIELD(tsl::TurnServerInfo, bandwidth, std::int32_t),
  });
}

TEST(EngineAbi, ConnectParamsKeepsItsLayout) {
  expectLayout<tsl::ConnectParams>({
      FIELD(tsl::ConnectParams, uri, Text),
      FIELD(tsl::ConnectParams, meetingGuid, Text),
      FIELD(tsl::ConnectParams, endpointName, Text),
      FIELD(tsl::ConnectParams, reservedText, Text),
      FIELD(tsl::ConnectParams, meetingFeatures, TextSet),
      FIELD(tsl::ConnectParams, gracefulEvents, SwitchList),
      FIELD(tsl::ConnectParams, maxBandwidth, std::int32_t),
      FIELD(tsl::ConnectParams, mediaStreamState, tsl::MediaStreamState),
      FIELD(tsl::ConnectParams, forceTurn, bool),
      FIELD(tsl::ConnectParams, turnServers, TurnServerList),
      FIELD(tsl::ConnectParams, enableRdc, bool),
      FIELD(tsl::ConnectParams, isVesperMeeting, bool),
      FIELD(tsl::ConnectParams, enableClientDrivenLayouts, bool),
      FIELD(tsl::ConnectParams, enableClientLayoutOrdering, bool),
      FIELD(tsl::ConnectParams, meetingAttributes, Text),
  });
}

TEST(EngineAbi, TheDeviceRecordsKeepTheirLayout) {
  expectLayout<tsl::AudioInDevice>({
      FIELD(tsl::AudioInDevice, id, Text),
      FIELD(tsl::AudioInDevice, name, Text),
      FIELD(tsl::AudioInDevice, sourceName, Text),
  });
  expectLayout<tsl::AudioOutDevice>({
      FIELD(tsl::AudioOutDevice, id, Text),
      FIELD(tsl::AudioOutDevice, name, Text),
      FIELD(tsl::AudioOutDevice, sourceName, Text),
  });
  expectLayout<tsl::VideoDevice>({
      FIELD(tsl::VideoDevice, id, Text),
      FIELD(tsl::VideoDevice, name, Text),
      FIELD(tsl::VideoDevice, width, std::int32_t),
      FIELD(tsl::VideoDevice, height, std::int32_t),
      FIELD(tsl::VideoDevice, maxFps, std::int32_t),
  });
  expectLayout<tsl::DeviceSelectionParams>({
      FIELD(tsl::DeviceSelectionParams, videoDevice, tsl::VideoDevice),
      FIELD(tsl::DeviceSelectionParams, audioInDevice, tsl::AudioInDevice),
      FIELD(tsl::DeviceSelectionParams, audioOutDevice, tsl::AudioOutDevice),
  });
  expectLayout<tsl::AudioDeviceStats>({
      FIELD(tsl::AudioDeviceStats, isSpeakerMuted, bool),
      FIELD(tsl::AudioDeviceStats, speakerVolume, float),
      FIELD(tsl::AudioDeviceStats, isMicMuted, bool),
      FIELD(tsl::AudioDeviceStats, micVolume, float),
  });
}

TEST(EngineAbi, TheContentSharingRecordsKeepTheirLayout) {
  expectLayout<tsl::ContentShareParams>({
      FIELD(tsl::ContentShareParams, type, tsl::ShareType),
      FIELD(tsl::ContentShareParams, screenId, std::int32_t),
      FIELD(tsl::ContentShareParams, applicationId, std::int32_t),
      FIELD(tsl::ContentShareParams, windowId, std::int32_t),
      FIELD(tsl::ContentShareParams, engineFlag, bool),
  });
  expectLayout<tsl::ScreenMonitor>({
      FIELD(tsl::ScreenMonitor, x, std::int32_t),
      FIELD(tsl::ScreenMonitor, y, std::int32_t),
      FIELD(tsl::ScreenMonitor, width, std::int32_t),
      FIELD(tsl::ScreenMonitor, height, std::int32_t),
      FIELD(tsl::ScreenMonitor, engineValue, std::int32_t),
  });
}

TEST(EngineAbi, TheVideoLayoutRecordsKeepTheirLayout) {
  expectLayout<tsl::VideoStreamInfo>({
      FIELD(tsl::VideoStreamInfo, ssrc, std::uint32_t),
      FIELD(tsl::VideoStreamInfo, participantSsrc, std::uint32_t),
      FIELD(tsl::VideoStreamInfo, speakerGroup, std::uint16_t),
      FIELD(tsl::VideoStreamInfo, priority, std::uint16_t),
  });
  expectLayout<tsl::VideoStreamConstraints>({
      FIELD(tsl::VideoStreamConstraints, maxQuality, std::uint32_t),
      FIELD(tsl::VideoStreamConstraints, maxFrameRate, std::uint32_t),
      FIELD(tsl::VideoStreamConstraints, minQuality, std::uint32_t),
      FIELD(tsl::VideoStreamConstraints, minFrameRate, std::uint32_t),
  });
}

TEST(EngineAbi, TheStatisticsRecordsKeepTheirLayout) {
  expectLayout<tsl::VideoStats>({
      FIELD(tsl::VideoStats, width, std::int32_t),
      FIELD(tsl::VideoStats, height, std::int32_t),
      FIELD(tsl::VideoStats, totalBitrateBps, std::int32_t),
      FIELD(tsl::VideoStats, fractionLost, double),
      FIELD(tsl::VideoStats, cumulativeLost, std::uint32_t),
      FIELD(tsl::VideoStats, delayMs, std::int32_t),
      FIELD(tsl::VideoStats, fps, std::int32_t),
      FIELD(tsl::VideoStats, rtxRecoveredPackets, std::int32_t),
      FIELD(tsl::VideoStats, fecRecoveredPackets, std::int32_t),
      FIELD(tsl::VideoStats, retransmitBitrateBps, std::int32_t),
  });
  expectLayout<tsl::AudioStats>({
      FIELD(tsl::AudioStats, transmitLevel, double),
      FIELD(tsl::AudioStats, outputLevel, double),
      FIELD(tsl::AudioStats, snr, double),
      FIELD(tsl::AudioStats, downlinkJitter, std::uint32_t),
      FIELD(tsl::AudioStats, uplinkJitter, std::uint32_t),
      FIELD(tsl::AudioStats, downlinkPacketLossCount, std::uint32_t),
      FIELD(tsl::AudioStats, uplinkPacketLossCount, std::uint32_t),
      FIELD(tsl::AudioStats, downlinkPacketCorrectedCount, std::uint32_t),
      FIELD(tsl::AudioStats, uplinkPacketCorrectedCount, std::uint32_t),
      FIELD(tsl::AudioStats, downlinkPayloadBytes, std::uint64_t),
      FIELD(tsl::AudioStats, uplinkPayloadBytes, std::uint64_t),
  });
  expectLayout<tsl::MeetingStats>({
      FIELD(tsl::MeetingStats, systemCpu, std::int32_t),
      FIELD(tsl::MeetingStats, processCpu, std::int32_t),
      FIELD(tsl::MeetingStats, inboundBweBps, std::int32_t),
      FIELD(tsl::MeetingStats, outboundBweBps, std::int32_t),
      FIELD(tsl::MeetingStats, totalInboundBps, std::int32_t),
      FIELD(tsl::MeetingStats, totalOutboundBps, std::int32_t),
      FIELD(tsl::MeetingStats, sendTmmbrBitrate, std::int32_t),
      FIELD(tsl::MeetingStats, instantInboundLoss, float),
      FIELD(tsl::MeetingStats, instantOutboundLoss, float),
      FIELD(tsl::MeetingStats, videoSend, VideoStatsBySsrc),
      FIELD(tsl::MeetingStats, contentSend, tsl::VideoStats),
      FIELD(tsl::MeetingStats, videoReceive, VideoStatsBySsrc),
      FIELD(tsl::MeetingStats, contentReceive, tsl::VideoStats),
      FIELD(tsl::MeetingStats, audio, tsl::AudioStats),
  });
}

TEST(EngineAbi, TheFrameRecordsKeepTheirLayout) {
  expectLayout<VideoPlane>({
      FIELD(VideoPlane, data, PixelPointer),
      FIELD(VideoPlane, width, std::uint32_t),
      FIELD(VideoPlane, height, std::uint32_t),
      FIELD(VideoPlane, size, std::uint32_t),
      FIELD(VideoPlane, stride, std::uint32_t),
  });
  expectLayout<VideoFrame>({
      FIELD(VideoFrame, noUpdate, bool),
      FIELD(VideoFrame, clearFrame, bool),
      FIELD(VideoFrame, frameId, std::uint64_t),
      FIELD(VideoFrame, csrc, std::uint32_t),
      FIELD(VideoFrame, frame, FrameReference),
      FIELD(VideoFrame, width, std::uint32_t),
      FIELD(VideoFrame, height, std::uint32_t),
      FIELD(VideoFrame, engineValue, std::uint64_t),
      FIELD(VideoFrame, yPlane, VideoPlane),
      FIELD(VideoFrame, uPlane, VideoPlane),
      FIELD(VideoFrame, vPlane, VideoPlane),
  });
}

TEST(EngineAbi, AStreamKeyIsTheKindThenTheIndex) {
  expectLayout<StreamKey>({
      FIELD(StreamKey, first, TSLM_STREAM_INDEX),
      FIELD(StreamKey, second, int),
  });
}

// ---- Enumerations

template <typename Enumeration>
void expectValues(const std::vector<std::pair<Enumeration, int>>& values) {
  static_assert(std::is_same_v<std::underlying_type_t<Enumeration>, std::int32_t>);
  for (const auto& [enumerator, promised] : values)
    EXPECT_EQ(static_cast<int>(enumerator), promised);
}

TEST(EngineAbi, TheEnumeratorsKeepTheirValues) {
  expectValues<TSLM_STREAM_INDEX>(
      {{TSLM_STREAM_LOCAL, 0}, {TSLM_STREAM_REMOTE, 1}, {TSLM_STREAM_CONTENT, 2}});
  expectValues<ShareStatus>({{ShareStatus::kStarted, 0},
                             {ShareStatus::kFailed, 1},
                             {ShareStatus::kDenied, 2},
                             {ShareStatus::kTokenGranted, 3},
                             {ShareStatus::kTokenDenied, 4},
                             {ShareStatus::kStopped, 6},
                             {ShareStatus::kTokenRelinquished, 7}});
  expectValues<MediaType>(
      {{MediaType::kVideo, 0}, {MediaType::kAudio, 1}, {MediaType::kContent, 2}});
  expectValues<DeviceType>(
      {{DeviceType::kVideo, 1}, {DeviceType::kAudioIn, 2}, {DeviceType::kAudioOut, 3}});
  expectValues<VSPVoQualityIndex>({{VSPVoQualityIndex::k45p, 0},
                                   {VSPVoQualityIndex::k90p, 1},
                                   {VSPVoQualityIndex::k180p, 2},
                                   {VSPVoQualityIndex::k360p, 3},
                                   {VSPVoQualityIndex::k720p, 4}});
  expectValues<tsl::ShareType>({{tsl::ShareType::kScreen, 0},
                                {tsl::ShareType::kApplication, 1},
                                {tsl::ShareType::kWindow, 2}});
}

}  // namespace
