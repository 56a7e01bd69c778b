#include "engine/webrtc/feedback.h"

#include <gst/rtp/gstrtcpbuffer.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "engine/webrtc/glib.h"

namespace webrtc {
namespace {

constexpr guint kMtu = 1400;

// A receiver report on these SSRCs, each with its own loss, and a request for a key frame.
BufferPtr compoundOf(const std::vector<guint32>& ssrcs) {
  BufferPtr compound(gst_rtcp_buffer_new(kMtu));
  GstRTCPBuffer rtcp = GST_RTCP_BUFFER_INIT;
  gst_rtcp_buffer_map(compound.get(), GST_MAP_READWRITE, &rtcp);
  GstRTCPPacket packet;
  gst_rtcp_buffer_add_packet(&rtcp, GST_RTCP_TYPE_RR, &packet);
  gst_rtcp_packet_rr_set_ssrc(&packet, 1);
  for (const guint32 ssrc : ssrcs) {
    gst_rtcp_packet_add_rb(&packet, ssrc, 0, static_cast<gint32>(ssrc * 2), 3, 4, 5, 6);
  }
  gst_rtcp_buffer_add_packet(&rtcp, GST_RTCP_TYPE_PSFB, &packet);
  gst_rtcp_packet_fb_set_type(&packet, GST_RTCP_PSFB_TYPE_PLI);
  gst_rtcp_buffer_unmap(&rtcp);
  return compound;
}

// The SSRCs that are reported, in order.
std::vector<guint32> reportedIn(const BufferPtr& compound) {
  std::vector<guint32> reported;
  GstRTCPBuffer rtcp = GST_RTCP_BUFFER_INIT;
  gst_rtcp_buffer_map(compound.get(), GST_MAP_READ, &rtcp);
  GstRTCPPacket packet;
  gst_rtcp_buffer_get_first_packet(&rtcp, &packet);
  for (guint index = 0; index < gst_rtcp_packet_get_rb_count(&packet); ++index) {
    guint32 ssrc = 0;
    gint32 lost = 0;
    gst_rtcp_packet_get_rb(&packet, index, &ssrc, nullptr, &lost, nullptr, nullptr, nullptr,
                           nullptr);
    EXPECT_EQ(lost, static_cast<gint32>(ssrc * 2));
    reported.push_back(ssrc);
  }
  EXPECT_TRUE(gst_rtcp_packet_move_to_next(&packet));
  EXPECT_EQ(gst_rtcp_packet_get_type(&packet), GST_RTCP_TYPE_PSFB);
  gst_rtcp_buffer_unmap(&rtcp);
  return reported;
}

class FeedbackTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
};

TEST_F(FeedbackTest, PutsTheReportOfOneSourceFirst) {
  using Ssrcs = std::vector<guint32>;
  for (const auto& [before, after] : std::vector<std::pair<Ssrcs, Ssrcs>>{
           {{7}, {7}},
           {{7, 8, 9}, {7, 8, 9}},
           {{8, 7}, {7, 8}},
           {{8, 9, 7}, {7, 9, 8}},
           {{8, 9}, {8, 9}},
           {{}, {}},
       }) {
    const BufferPtr compound = compoundOf(before);
    putReportFirst(compound.get(), 7);
    EXPECT_EQ(reportedIn(compound), after);
  }
}

// What follows the SSRCs of a REMB.
BufferPtr rembOf(std::uint8_t exponent, std::uint32_t mantissa, const char* name = "REMB") {
  const guint8 bytes[] = {static_cast<guint8>(name[0]),
                          static_cast<guint8>(name[1]),
                          static_cast<guint8>(name[2]),
                          static_cast<guint8>(name[3]),
                          1,
                          static_cast<guint8>(std::uint32_t{exponent} << 2 | mantissa >> 16),
                          static_cast<guint8>(mantissa >> 8),
                          static_cast<guint8>(mantissa)};
  return BufferPtr(gst_buffer_new_memdup(bytes, sizeof(bytes)));
}

TEST_F(FeedbackTest, ReadsTheRateThatTheServerGrants) {
  EXPECT_EQ(grantedRateOf(rembOf(0, 1).get()), 1U);
  EXPECT_EQ(grantedRateOf(rembOf(3, 154'250).get()), 1'234'000U);
  EXPECT_EQ(grantedRateOf(rembOf(14, 0x3ffff).get()), 0x3ffffU << 14);
  // More than there is a number for.
  EXPECT_EQ(grantedRateOf(rembOf(15, 0x3ffff).get()), UINT32_MAX);
  EXPECT_EQ(grantedRateOf(rembOf(63, 1).get()), UINT32_MAX);
}

TEST_F(FeedbackTest, ReadsNoRateFromOtherFeedback) {
  EXPECT_EQ(grantedRateOf(nullptr), std::nullopt);
  EXPECT_EQ(grantedRateOf(rembOf(3, 154'250, "REMA").get()), std::nullopt);
  const BufferPtr remb = rembOf(3, 154'250);
  gst_buffer_set_size(remb.get(), 7);
  EXPECT_EQ(grantedRateOf(remb.get()), std::nullopt);
}

TEST_F(FeedbackTest, LeavesWhatIsNoReceiverReport) {
  const BufferPtr buffer(gst_buffer_new_allocate(nullptr, 3, nullptr));
  gst_buffer_memset(buffer.get(), 0, 0xff, 3);
  putReportFirst(buffer.get(), 7);
  EXPECT_EQ(gst_buffer_get_size(buffer.get()), 3U);
}

}  // namespace
}  // namespace webrtc
