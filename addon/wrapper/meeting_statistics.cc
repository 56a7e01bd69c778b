// TesselWrapper: the meeting's statistics and the attributes that it requires.

#include "addon/napi/arguments.h"
#include "addon/napi/object_property_helper.h"
#include "addon/napi/values.h"
#include "addon/wrapper/tessel_wrapper.h"

using napi::toJavascript;

namespace wrapper {
namespace {

using Properties = std::vector<std::pair<const char*, Napi::Value>>;

Napi::Value meetingObject(Napi::Env env, const tsl::MeetingStats& stats) {
  return napi::makeObject(
      env, {{"system_cpu", toJavascript(env, stats.systemCpu)},
            {"process_cpu", toJavascript(env, stats.processCpu)},
            {"inbound_bwe_bps", toJavascript(env, stats.inboundBweBps)},
            {"outbound_bwe_bps", toJavascript(env, stats.outboundBweBps)},
            {"total_inbound_bps", toJavascript(env, stats.totalInboundBps)},
            {"total_outbound_bps", toJavascript(env, stats.totalOutboundBps)},
            {"send_tmmbr_bitrate", toJavascript(env, stats.sendTmmbrBitrate)},
            {"instant_inbound_loss", toJavascript(env, stats.instantInboundLoss)},
            {"instant_outbound_loss", toJavascript(env, stats.instantOutboundLoss)}});
}

// The first properties of every video record; with an SSRC, also those that only a record of one
// stream has.
Properties videoHead(Napi::Env env, const std::uint32_t* ssrc, const tsl::VideoStats& stats) {
  Properties head;
  if (ssrc != nullptr) head.emplace_back("ssrc", toJavascript(env, *ssrc));
  head.emplace_back("width", toJavascript(env, stats.width));
  head.emplace_back("height", toJavascript(env, stats.height));
  head.emplace_back("total_bitrate_bps", toJavascript(env, stats.totalBitrateBps));
  if (ssrc != nullptr) {
    head.emplace_back("fraction_loss", toJavascript(env, stats.fractionLost));
    head.emplace_back("cumulative_loss", toJavascript(env, stats.cumulativeLost));
  }
  return head;
}

// The delay is the pacer delay of sent video and the target delay of received video.
Napi::Value sentVideoObject(Napi::Env env, const std::uint32_t* ssrc,
                            const tsl::VideoStats& stats) {
  Properties properties = videoHead(env, ssrc, stats);
  properties.emplace_back("pacer_delay_ms", toJavascript(env, stats.delayMs));
  properties.emplace_back("fps", toJavascript(env, stats.fps));
  properties.emplace_back("retransmit_bitrate_bps", toJavascript(env, stats.retransmitBitrateBps));
  return napi::makeObject(env, properties);
}

Napi::Value receivedVideoObject(Napi::Env env, const std::uint32_t* ssrc,
                                const tsl::VideoStats& stats) {
  Properties properties = videoHead(env, ssrc, stats);
  properties.emplace_back("target_delay_ms", toJavascript(env, stats.delayMs));
  properties.emplace_back("rtx_recovered_packets", toJavascript(env, stats.rtxRecoveredPackets));
  properties.emplace_back("fec_recovered_packets", toJavascript(env, stats.fecRecoveredPackets));
  properties.emplace_back("fps", toJavascript(env, stats.fps));
  return napi::makeObject(env, properties);
}

Napi::Value audioObject(Napi::Env env, const tsl::AudioStats& stats) {
  // Counts above 2^53 lose precision.
  const auto bytes = [env](std::uint64_t count) {
    return toJavascript(env, static_cast<double>(count));
  };
  return napi::makeObject(
      env,
      {{"transmit_level", toJavascript(env, stats.transmitLevel)},
       {"output_level", toJavascript(env, stats.outputLevel)},
       {"snr", toJavascript(env, stats.snr)},
       {"downlink_jitter", toJavascript(env, stats.downlinkJitter)},
       {"uplink_jitter", toJavascript(env, stats.uplinkJitter)},
       {"downlink_packet_loss_count", toJavascript(env, stats.downlinkPacketLossCount)},
       {"uplink_packet_loss_count", toJavascript(env, stats.uplinkPacketLossCount)},
       {"downlink_packet_corrected_count", toJavascript(env, stats.downlinkPacketCorrectedCount)},
       {"uplink_packet_corrected_count", toJavascript(env, stats.uplinkPacketCorrectedCount)},
       {"downlink_payload_bytes", bytes(stats.downlinkPayloadBytes)},
       {"uplink_payload_bytes", bytes(stats.uplinkPayloadBytes)}});
}

// One object for each SSRC, in ascending order.
Napi::Value videoArray(Napi::Env env, const std::map<std::uint32_t, tsl::VideoStats>& streams,
                       Napi::Value (*makeVideo)(Napi::Env, const std::uint32_t*,
                                                const tsl::VideoStats&)) {
  return napi::makeArray(env, streams, [&](const auto& stream) {
    return makeVideo(env, &stream.first, stream.second);
  });
}

}  // namespace

void TesselWrapper::configureMeetingStats(const Napi::CallbackInfo& info) {
  const napi::NapiObjectPropertyHelper helper(info, napi::onlyObject(info),
                                              "configureMeetingStats");
  const bool enable = helper.getAsBoolean("enable");
  // Only the low 16 bits are kept.
  const auto timerDuration = static_cast<unsigned short>(helper.getAsInt("timerDuration"));
  manager_->ConfigureMeetingStats(enable, timerDuration);
}

Napi::Value TesselWrapper::getMeetingStats(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  tsl::MeetingStats stats;
  manager_->GetMeetingStats(stats);
  // A group is attached before the next one is built.
  const Napi::Object result = Napi::Object::New(env);
  napi::setProperty(result, "meetingStats", meetingObject(env, stats));
  napi::setProperty(result, "video_send_stats", videoArray(env, stats.videoSend, sentVideoObject));
  napi::setProperty(result, "content_send_stats", sentVideoObject(env, nullptr, stats.contentSend));
  napi::setProperty(result, "video_recv_stats",
                    videoArray(env, stats.videoReceive, receivedVideoObject));
  napi::setProperty(result, "content_recv_stats",
                    receivedVideoObject(env, nullptr, stats.contentReceive));
  napi::setProperty(result, "audio_stats", audioObject(env, stats.audio));
  return result;
}

Napi::Value TesselWrapper::getMediaMeetingAttributes(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  return napi::makeArray(env, manager_->GetRequiredMeetingAttributes(),
                         [env](const std::string& attribute) {
                           return napi::makeObject(env, {{"value", toJavascript(env, attribute)}});
                         });
}

}  // namespace wrapper
