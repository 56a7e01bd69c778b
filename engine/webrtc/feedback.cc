#include "engine/webrtc/feedback.h"

#include <gst/rtp/gstrtcpbuffer.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace webrtc {

void putReportFirst(GstBuffer* compound, std::uint32_t ssrc) {
  constexpr std::size_t kReportsAt = 8;
  constexpr std::size_t kReportBytes = 24;
  GstRTCPBuffer rtcp = GST_RTCP_BUFFER_INIT;
  if (gst_rtcp_buffer_map(compound, GST_MAP_READWRITE, &rtcp) == FALSE) return;
  GstRTCPPacket packet;
  const bool isReport = gst_rtcp_buffer_get_first_packet(&rtcp, &packet) != FALSE &&
                        gst_rtcp_packet_get_type(&packet) == GST_RTCP_TYPE_RR;
  const guint count = isReport ? gst_rtcp_packet_get_rb_count(&packet) : 0;
  guint8* const first = rtcp.map.data + packet.offset + kReportsAt;
  for (guint index = 1; index < count; ++index) {
    guint32 reported = 0;
    gst_rtcp_packet_get_rb(&packet, index, &reported, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr);
    if (reported == ssrc) {
      std::swap_ranges(first, first + kReportBytes, first + index * kReportBytes);
    }
  }
  gst_rtcp_buffer_unmap(&rtcp);
}

std::optional<std::uint32_t> grantedRateOf(GstBuffer* feedback) {
  // The name, the number of SSRCs, 6 bits of exponent and 18 of mantissa.
  std::array<std::uint8_t, 8> bytes = {};
  if (!feedback || gst_buffer_extract(feedback, 0, bytes.data(), bytes.size()) < bytes.size()) {
    return std::nullopt;
  }
  if (std::string_view(reinterpret_cast<const char*>(bytes.data()), 4) != "REMB") {
    return std::nullopt;
  }
  const unsigned exponent = bytes[5] >> 2;
  const std::uint64_t mantissa = (bytes[5] & 3U) << 16 | std::uint32_t{bytes[6]} << 8 | bytes[7];
  constexpr unsigned kMostExponent = 32;
  if (exponent > kMostExponent) return UINT32_MAX;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(mantissa << exponent, UINT32_MAX));
}

}  // namespace webrtc
