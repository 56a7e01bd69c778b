#include "engine/webrtc/call_statistics.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace webrtc {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kAudio = 11;
constexpr std::uint32_t kVideo = 22;
constexpr std::uint32_t kRepeated = 33;
constexpr Tracks kTracks = {.audio = kAudio, .video = kVideo, .repeatedVideo = kRepeated};
constexpr support::Time kWindow = 500ms;

// Of a connection that receives, after `times` equal windows.
RtpCounts received(std::uint64_t times) {
  RtpCounts counts;
  counts.sources[kAudio] = {.packets = 25 * times,
                            .bytes = 2'000 * times,
                            .payloadBytes = 1'500 * times,
                            .jitterMs = 2.6,
                            .missing = 5 * times};
  counts.sources[kVideo] = {.packets = 60 * times,
                            .bytes = 50'000 * times,
                            .payloadBytes = 49'000 * times,
                            .jitterMs = 9,
                            .repaired = 6 * times,
                            .missing = 4 * times,
                            .longestWaitMs = 200};
  counts.sources[kRepeated] = {.packets = 6 * times, .bytes = 5'000 * times};
  return counts;
}

// The same of one that sends.
RtpCounts sent(std::uint64_t times) {
  RtpCounts counts = received(times);
  for (auto& [ssrc, source] : counts.sources) {
    source.isOwn = true;
    source.repaired = source.missing = source.longestWaitMs = 0;
  }
  counts.reports[kVideo] = {
      .fractionLost = 0.25, .lost = static_cast<std::uint32_t>(7 * times), .jitterMs = 4};
  counts.reports[kAudio] = {
      .fractionLost = 0.5, .lost = static_cast<std::uint32_t>(3 * times), .jitterMs = 1.4};
  return counts;
}

FrameCounts frames(std::uint64_t times) { return {.frames = 15 * times, .size = {320, 180}}; }

TEST(ConnectionMeterTest, CountsWhatWasReceivedInTheWindow) {
  ConnectionMeter meter;
  meter.closeWindow(kWindow, received(1), kTracks, frames(1));
  const Traffic traffic = meter.closeWindow(kWindow, received(3), kTracks, frames(3));
  EXPECT_EQ(traffic.videoSsrc, kVideo);
  EXPECT_EQ(traffic.bytes, 2 * 57'000U);
  // Without repetitions.
  EXPECT_EQ(traffic.packets, 2 * (30 + 70));
  EXPECT_EQ(traffic.lost, 2 * (5 + 10));
  EXPECT_EQ(traffic.audio.payloadBytes, 2 * 1'500U);
  EXPECT_EQ(traffic.audio.lost, 2 * 5U);
  EXPECT_EQ(traffic.audio.repaired, 0U);
  EXPECT_EQ(traffic.audio.jitterMs, 2.6);
  ASSERT_TRUE(traffic.video);
  EXPECT_EQ(traffic.video->width, 320);
  EXPECT_EQ(traffic.video->height, 180);
  EXPECT_EQ(traffic.video->fps, 60);
  EXPECT_EQ(traffic.video->totalBitrateBps, 2 * 55'000 * 8 * 2);
  EXPECT_EQ(traffic.video->retransmitBitrateBps, 2 * 5'000 * 8 * 2);
  EXPECT_FLOAT_EQ(static_cast<float>(traffic.video->fractionLost), 1.0F / 7);
  // Of the whole call.
  EXPECT_EQ(traffic.video->cumulativeLost, 30U);
  EXPECT_EQ(traffic.video->rtxRecoveredPackets, 18);
  EXPECT_EQ(traffic.video->delayMs, 200);
}

TEST(ConnectionMeterTest, TakesTheLossesOfWhatWasSentFromTheServersReports) {
  ConnectionMeter meter;
  meter.closeWindow(kWindow, sent(1), kTracks, frames(1));
  const Traffic traffic = meter.closeWindow(kWindow, sent(3), kTracks, frames(3));
  EXPECT_EQ(traffic.packets, 2 * (25 + 60));
  EXPECT_EQ(traffic.lost, 2 * (0.5 * 25 + 0.25 * 60));
  EXPECT_EQ(traffic.audio.lost, 2 * 3U);
  EXPECT_EQ(traffic.audio.jitterMs, 1.4);
  ASSERT_TRUE(traffic.video);
  EXPECT_EQ(traffic.video->fractionLost, 0.25);
  EXPECT_EQ(traffic.video->cumulativeLost, 21U);
}

TEST(ConnectionMeterTest, ListsAVideoFromItsFirstPacketOn) {
  ConnectionMeter meter;
  RtpCounts counts;
  counts.sources[kVideo] = {};
  EXPECT_FALSE(meter.closeWindow(kWindow, counts, kTracks, {}).video);
  EXPECT_TRUE(meter.closeWindow(kWindow, received(1), kTracks, frames(1)).video);
  // Nothing more in the next window.
  const Traffic idle = meter.closeWindow(kWindow, received(1), kTracks, frames(1));
  ASSERT_TRUE(idle.video);
  EXPECT_EQ(idle.video->fps, 0);
  EXPECT_EQ(idle.video->totalBitrateBps, 0);
  EXPECT_EQ(idle.video->fractionLost, 0);
}

TEST(ConnectionMeterTest, BeginsAgainWithACountThatDoes) {
  ConnectionMeter meter;
  meter.closeWindow(kWindow, received(3), kTracks, frames(3));
  EXPECT_EQ(meter.closeWindow(kWindow, received(2), kTracks, frames(4)).bytes, 2 * 57'000U);
}

TEST(CallStatisticsTest, AddsUpTheConnections) {
  Traffic sentTraffic;
  sentTraffic.videoSsrc = 1;
  sentTraffic.video.emplace().fps = 30;
  sentTraffic.bytes = 10'000;
  sentTraffic.packets = 100;
  sentTraffic.lost = 10;
  sentTraffic.audio = {.payloadBytes = 400, .lost = 4, .jitterMs = 1.4};
  Traffic one;
  one.videoSsrc = 2;
  one.video.emplace().fps = 15;
  one.bytes = 20'000;
  one.packets = 60;
  one.lost = 10;
  one.audio = {.payloadBytes = 500, .lost = 5, .repaired = 2, .jitterMs = 2.6};
  Traffic other = one;
  other.videoSsrc = 3;
  other.video.reset();
  other.packets = 20;
  other.audio.jitterMs = 1;

  CallStatistics statistics;
  tsl::MeetingStats stats;
  statistics.collect(kWindow, sentTraffic, {one, other}, {}, stats);
  stats = {};
  statistics.collect(kWindow, sentTraffic, {one, other}, {}, stats);
  EXPECT_EQ(stats.totalOutboundBps, 160'000);
  EXPECT_EQ(stats.totalInboundBps, 640'000);
  EXPECT_FLOAT_EQ(static_cast<float>(stats.instantInboundLoss), 0.25F);
  EXPECT_FLOAT_EQ(static_cast<float>(stats.instantOutboundLoss), 0.1F);
  ASSERT_EQ(stats.videoSend.size(), 1U);
  EXPECT_EQ(stats.videoSend.at(1).fps, 30);
  ASSERT_EQ(stats.videoReceive.size(), 1U);
  EXPECT_EQ(stats.videoReceive.at(2).fps, 15);
  // The largest, rounded; the counts are of the whole call.
  EXPECT_EQ(stats.audio.downlinkJitter, 3U);
  EXPECT_EQ(stats.audio.uplinkJitter, 1U);
  EXPECT_EQ(stats.audio.downlinkPayloadBytes, 2'000U);
  EXPECT_EQ(stats.audio.uplinkPayloadBytes, 800U);
  EXPECT_EQ(stats.audio.downlinkPacketLossCount, 20U);
  EXPECT_EQ(stats.audio.uplinkPacketLossCount, 8U);
  EXPECT_EQ(stats.audio.downlinkPacketCorrectedCount, 8U);
}

TEST(CallStatisticsTest, HasNoLossWithoutPackets) {
  CallStatistics statistics;
  tsl::MeetingStats stats;
  statistics.collect(kWindow, {}, {}, {}, stats);
  EXPECT_EQ(stats.instantInboundLoss, 0);
  EXPECT_EQ(stats.instantOutboundLoss, 0);
}

}  // namespace
}  // namespace webrtc
