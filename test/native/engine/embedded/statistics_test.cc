// Statistics, as the application sees them.

#include <algorithm>

#include "engine/embedded/meeting/speech.h"
#include "engine/embedded/streams/identity.h"
#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/embedded/engine_test.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;
using testing::SizeIs;

class StatisticsTest : public EngineTest {
 protected:
  tsl::MeetingStats stats() const {
    tsl::MeetingStats stats;
    manager_->GetMeetingStats(stats);
    return stats;
  }
  // From a moment between two frames on.
  void collect(unsigned short milliseconds) {
    pass(10ms);
    manager_->ConfigureMeetingStats(true, milliseconds);
    pass(0s);
  }
};

// Bits of a test card's frame of 64x36.
constexpr int kSmallCard = 3456 * 8;

TEST_F(StatisticsTest, AreEmptyUntilTheyAreCollected) {
  connect("tessel:demo?participants=2");
  pass(10s);
  EXPECT_THAT(stats().videoReceive, IsEmpty());
  collect(1000);
  pass(999ms);
  EXPECT_THAT(stats().videoReceive, IsEmpty());
  pass(1ms);
  EXPECT_THAT(stats().videoReceive, SizeIs(2));
  manager_->ConfigureMeetingStats(false, 0);
  pass(0s);
  EXPECT_THAT(stats().videoReceive, IsEmpty());
}

TEST_F(StatisticsTest, DescribeEachReceivedStream) {
  connect("tessel:demo?participants=2&size=64x36&fps=20&leave=1@3");
  collect(2000);
  pass(2s);
  const auto both = stats();
  ASSERT_THAT(both.videoReceive, SizeIs(2));
  const auto& one = both.videoReceive.at(csrcOf(1, support::remoteStream(0)));
  EXPECT_EQ(one.width, 64);
  EXPECT_EQ(one.height, 36);
  EXPECT_EQ(one.fps, 20);
  EXPECT_EQ(one.totalBitrateBps, 20 * kSmallCard);
  EXPECT_EQ(one.fractionLost, 0);
  EXPECT_EQ(both.totalInboundBps, 40 * kSmallCard);
  EXPECT_EQ(both.totalOutboundBps, 0);
  EXPECT_THAT(both.videoSend, IsEmpty());
  pass(2s);
  EXPECT_THAT(stats().videoReceive, SizeIs(1));
}

TEST_F(StatisticsTest, DescribeTheWindowThatEndedLast) {
  connect("tessel:demo?participants=1&videomute=0@1.1-2");
  collect(500);
  pass(1s);
  EXPECT_EQ(stats().videoReceive.begin()->second.fps, 30);
  pass(500ms);
  EXPECT_THAT(stats().videoReceive, IsEmpty()) << "a muted stream is not received";
  pass(1s);
  EXPECT_EQ(stats().videoReceive.begin()->second.fps, 30);
}

TEST_F(StatisticsTest, DescribeTheSentStreams) {
  manager_->EnableCameraCapture(true);
  manager_->SetVideoDevice({"", "", 64, 36, 10});
  pass(10s);
  collect(1000);
  pass(1s);
  EXPECT_THAT(stats().videoSend, IsEmpty()) << "nothing is sent outside a call";
  connect("tessel:demo?participants=0");
  pass(1s);
  const auto sent = stats();
  ASSERT_THAT(sent.videoSend, SizeIs(1));
  EXPECT_EQ(sent.videoSend.begin()->first, csrcOf(0, support::kLocalStream));
  EXPECT_EQ(sent.videoSend.begin()->second.fps, 10);
  EXPECT_EQ(sent.totalOutboundBps, 10 * kSmallCard);
  manager_->MuteLocalVideo(true);
  pass(1s);
  EXPECT_THAT(stats().videoSend, IsEmpty());
}

TEST_F(StatisticsTest, CountContentAsSentOrReceived) {
  connect("tessel:demo?participants=1&present=0@1-2");
  collect(1000);
  pass(2s);
  EXPECT_EQ(stats().contentReceive.fps, 0) << "the presentation has just ended";
  manager_->RequestContentShareToken();
  manager_->StartPresentation({});
  pass(1s);
  EXPECT_EQ(stats().contentSend.fps, 15);
  EXPECT_EQ(stats().contentSend.width, 1280);
  EXPECT_EQ(stats().contentReceive.fps, 0);
}

TEST_F(StatisticsTest, DescribeTheReceivedContent) {
  connect("tessel:demo?participants=1&present=0@0");
  collect(1000);
  pass(1s);
  EXPECT_EQ(stats().contentReceive.fps, 15);
  EXPECT_EQ(stats().contentReceive.height, 720);
  EXPECT_EQ(stats().contentSend.fps, 0);
}

TEST_F(StatisticsTest, CountLostPacketsAndFrames) {
  connect("tessel:demo?participants=2&size=160x90&fps=60&loss=1:0.2");
  collect(20'000);
  pass(20s);
  const auto lossy = stats().videoReceive.at(csrcOf(1, support::remoteStream(1)));
  const auto whole = stats().videoReceive.at(csrcOf(1, support::remoteStream(0)));
  EXPECT_EQ(whole.fps, 60);
  EXPECT_EQ(whole.cumulativeLost, 0U);
  EXPECT_EQ(whole.fractionLost, 0);
  constexpr double kPackets = 60 * 20 * 18;  // of each stream
  EXPECT_NEAR(lossy.fractionLost, 0.2, 0.1);
  EXPECT_DOUBLE_EQ(lossy.fractionLost, lossy.cumulativeLost / kPackets);
  EXPECT_LT(lossy.fps, 55);
  EXPECT_GT(lossy.fps, 30);
  EXPECT_FLOAT_EQ(stats().instantInboundLoss, static_cast<float>(lossy.fractionLost / 2));
  EXPECT_EQ(stats().instantOutboundLoss, 0);
  const auto frame = frameOf(support::remoteStream(1));
  EXPECT_EQ(codeOf(frame)->number, frame.frameId) << "lost frames have numbers too";
  EXPECT_GT(frame.frameId, 1100U);
}

TEST_F(StatisticsTest, LoseTheSameWithTheSameSeed) {
  const auto lost = [this](const std::string& seed) {
    connect("tessel:demo?participants=1&size=64x36&loss=0.2&seed=" + seed);
    collect(10'000);
    pass(10s);
    const auto count = stats().videoReceive.begin()->second.cumulativeLost;
    manager_->DisconnectCall();
    pass(0s);
    return count;
  };
  const auto first = lost("3");
  EXPECT_EQ(lost("3"), first);
  EXPECT_NE(lost("4"), first);
}

TEST_F(StatisticsTest, ReportTheLevels) {
  const auto levels = [this] {
    return std::pair(stats().audio.transmitLevel, stats().audio.outputLevel);
  };
  connect("tessel:demo?participants=2&speak=0@0-100,me@0-100&audiomute=0@20");
  collect(1000);
  pass(1s);
  const Speech speech(1, 2, {{0, 0s, 100s}, {kLocalParticipant, 0s, 100s}});
  const double mine = speech.level(kLocalParticipant, 1s);
  const double theirs = speech.level(0, 1s);
  EXPECT_EQ(levels(), std::pair(mine, theirs));
  manager_->SetRemoteAudioMute(true);
  manager_->MuteLocalAudio(true);
  pass(1s);
  EXPECT_EQ(levels(), std::pair(0.0, 0.0));
  manager_->SetRemoteAudioMute(false);
  pass(1s);
  EXPECT_GT(levels().second, 0);
  manager_->UpdateMediaStreamState({true, false, false, true, true});
  pass(1s);
  EXPECT_EQ(levels().second, 0) << "no audio is received";
  manager_->UpdateMediaStreamState({true, false, true, true, true});
  pass(1s);
  EXPECT_GT(levels().second, 0);
  pass(20s);
  EXPECT_EQ(levels().second, 0) << "the speaker has muted the microphone";
}

TEST_F(StatisticsTest, ReportNoReceivedLevelWithoutALoudspeaker) {
  connect("tessel:demo?participants=1&speak=0@0-100&unplug=speaker-0@1,speaker-1@2");
  collect(1000);
  pass(1500ms);
  EXPECT_GT(stats().audio.outputLevel, 0);
  pass(1500ms);
  EXPECT_EQ(stats().audio.outputLevel, 0);
}

TEST_F(StatisticsTest, ExtendAWindowThatIsTooShort) {
  connect("tessel:demo?participants=1");
  collect(0);
  pass(99ms);
  EXPECT_THAT(stats().videoReceive, IsEmpty());
  pass(1ms);
  EXPECT_EQ(stats().videoReceive.begin()->second.fps, 30);
}

TEST_F(StatisticsTest, AreEmptyOnceTheCallIsOver) {
  connect("tessel:demo?participants=1");
  collect(1000);
  pass(1s);
  manager_->DisconnectCall();
  pass(1s);
  EXPECT_THAT(stats().videoReceive, IsEmpty());
  EXPECT_EQ(stats().totalInboundBps, 0);
}

TEST_F(StatisticsTest, AreZeroForUnknownValues) {
  connect("tessel:demo?participants=1");
  collect(1000);
  pass(1s);
  const auto known = stats();
  EXPECT_EQ(known.inboundBweBps, 0);
  EXPECT_EQ(known.outboundBweBps, 0);
  EXPECT_EQ(known.sendTmmbrBitrate, 0);
  EXPECT_EQ(known.videoReceive.begin()->second.rtxRecoveredPackets, 0);
  EXPECT_EQ(known.audio.downlinkPayloadBytes, 0U);
}

}  // namespace
}  // namespace embedded
