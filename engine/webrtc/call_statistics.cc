#include "engine/webrtc/call_statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace webrtc {
namespace {

double perSecond(double count, support::Time length) {
  return count / std::chrono::duration<double>(length).count();
}

std::int32_t bitsPerSecond(std::uint64_t bytes, support::Time length) {
  constexpr double kMost = std::numeric_limits<std::int32_t>::max();
  const double bits = perSecond(static_cast<double>(bytes) * 8, length);
  return static_cast<std::int32_t>(std::min(bits, kMost));
}

float ratio(double part, double whole) { return whole > 0 ? static_cast<float>(part / whole) : 0; }

// A count begins again when a source has said goodbye and comes back.
std::uint64_t growth(std::uint64_t before, std::uint64_t after) {
  return after < before ? after : after - before;
}

// What was counted between the two.
SourceCounts growth(const SourceCounts& before, const SourceCounts& after) {
  SourceCounts grown = after;
  grown.packets = growth(before.packets, after.packets);
  grown.bytes = growth(before.bytes, after.bytes);
  grown.payloadBytes = growth(before.payloadBytes, after.payloadBytes);
  grown.repaired = growth(before.repaired, after.repaired);
  grown.missing = growth(before.missing, after.missing);
  return grown;
}

void add(const Traffic& traffic, Traffic& sum) {
  sum.bytes += traffic.bytes;
  sum.packets += traffic.packets;
  sum.lost += traffic.lost;
}

// The video's losses and their repair: `grown` in the window, `counted` in the whole call.
tsl::VideoStats lossesOf(const SourceCounts& grown, const SourceCounts& counted,
                         const ReceiverReport& report) {
  const auto lost = static_cast<double>(grown.missing + grown.repaired);
  tsl::VideoStats video;
  video.fractionLost =
      grown.isOwn ? report.fractionLost
                  : static_cast<double>(ratio(lost, static_cast<double>(grown.packets) + lost));
  video.cumulativeLost =
      grown.isOwn ? report.lost : static_cast<std::uint32_t>(counted.missing + counted.repaired);
  video.delayMs = static_cast<std::int32_t>(counted.longestWaitMs);
  video.rtxRecoveredPackets = static_cast<std::int32_t>(counted.repaired);
  return video;
}

}  // namespace

Traffic ConnectionMeter::closeWindow(support::Time length, RtpCounts counts, const Tracks& tracks,
                                     const FrameCounts& frames) {
  Traffic traffic;
  traffic.videoSsrc = tracks.video;
  std::uint64_t videoBytes = 0;
  std::uint64_t repeatedBytes = 0;
  for (const auto& [ssrc, counted] : counts.sources) {
    const SourceCounts grown = growth(before_.sources[ssrc], counted);
    traffic.bytes += grown.bytes;
    const bool isAudio = ssrc == tracks.audio;
    const bool isVideo = ssrc == tracks.video;
    if (ssrc == tracks.repeatedVideo) repeatedBytes = grown.bytes;
    if (!isAudio && !isVideo) continue;
    const ReceiverReport report = counts.reports[ssrc];
    const auto received = static_cast<double>(grown.packets);
    const auto lost = static_cast<double>(grown.missing + grown.repaired);
    const double expected = grown.isOwn ? received : received + lost;
    const double lostOfExpected = grown.isOwn ? report.fractionLost * received : lost;
    traffic.packets += expected;
    traffic.lost += lostOfExpected;
    if (isAudio) {
      traffic.audio = {.payloadBytes = grown.payloadBytes,
                       .lost = grown.isOwn
                                   ? report.lost - std::min(before_.reports[ssrc].lost, report.lost)
                                   : grown.missing + grown.repaired,
                       .jitterMs = grown.isOwn ? report.jitterMs : counted.jitterMs};
    } else if (counted.packets > 0) {
      videoBytes = grown.bytes;
      traffic.video = lossesOf(grown, counted, report);
    }
  }
  if (traffic.video) {
    const auto shown = static_cast<double>(growth(framesBefore_.frames, frames.frames));
    traffic.video->width = static_cast<std::int32_t>(frames.size.width);
    traffic.video->height = static_cast<std::int32_t>(frames.size.height);
    traffic.video->fps = static_cast<std::int32_t>(std::lround(perSecond(shown, length)));
    traffic.video->totalBitrateBps = bitsPerSecond(videoBytes + repeatedBytes, length);
    traffic.video->retransmitBitrateBps = bitsPerSecond(repeatedBytes, length);
  }
  before_ = std::move(counts);
  framesBefore_ = frames;
  return traffic;
}

void CallStatistics::collect(support::Time length, const Traffic& sent,
                             const std::vector<Traffic>& received, const ContentTraffic& content,
                             tsl::MeetingStats& stats) {
  Traffic sentInAll = sent;
  if (content.sent) {
    add(*content.sent, sentInAll);
    stats.contentSend = content.sent->video.value_or(tsl::VideoStats());
  }
  counted_.uplinkPayloadBytes += sent.audio.payloadBytes;
  counted_.uplinkPacketLossCount += static_cast<std::uint32_t>(sent.audio.lost);
  Traffic all;
  for (const Traffic& each : received) {
    counted_.downlinkPayloadBytes += each.audio.payloadBytes;
    counted_.downlinkPacketLossCount += static_cast<std::uint32_t>(each.audio.lost);
    counted_.downlinkPacketCorrectedCount += static_cast<std::uint32_t>(each.audio.repaired);
    all.audio.jitterMs = std::max(all.audio.jitterMs, each.audio.jitterMs);
    add(each, all);
    if (each.video) stats.videoReceive[each.videoSsrc] = *each.video;
  }
  if (content.received) {
    add(*content.received, all);
    stats.contentReceive = content.received->video.value_or(tsl::VideoStats());
  }
  if (sent.video) stats.videoSend[sent.videoSsrc] = *sent.video;
  stats.totalInboundBps = bitsPerSecond(all.bytes, length);
  stats.totalOutboundBps = bitsPerSecond(sentInAll.bytes, length);
  stats.instantInboundLoss = ratio(all.lost, all.packets);
  stats.instantOutboundLoss = ratio(sentInAll.lost, sentInAll.packets);
  stats.audio = counted_;
  stats.audio.downlinkJitter = static_cast<std::uint32_t>(std::lround(all.audio.jitterMs));
  stats.audio.uplinkJitter = static_cast<std::uint32_t>(std::lround(sent.audio.jitterMs));
}

}  // namespace webrtc
