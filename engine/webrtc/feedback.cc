#include "engine/webrtc/feedback.h"

#include <gst/rtp/gstrtcpbuffer.h>

#include <algorithm>

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

}  // namespace webrtc
