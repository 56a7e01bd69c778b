#include "engine/webrtc/rtp_counts.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <initializer_list>

namespace webrtc {
namespace {

// An object with the properties of an RTPSession or a jitter buffer that are read.
struct Counter {
  GstElement parent;
  GstStructure* stats;
};
struct CounterClass {
  GstElementClass parent;
};
enum : guint { kStats = 1, kLatency };
constexpr guint kLatencyMs = 200;

// NOLINTNEXTLINE: the macro's own code
G_DEFINE_TYPE(Counter, counter, GST_TYPE_ELEMENT)
void counter_init(Counter*) {}
void counter_class_init(CounterClass* klass) {
  GObjectClass* const object = G_OBJECT_CLASS(klass);
  object->get_property = [](GObject* self, guint id, GValue* value, GParamSpec*) {
    if (id == kStats) {
      g_value_set_boxed(value, reinterpret_cast<Counter*>(self)->stats);
    } else {
      g_value_set_uint(value, kLatencyMs);
    }
  };
  object->finalize = [](GObject* self) {
    gst_structure_free(reinterpret_cast<Counter*>(self)->stats);
    G_OBJECT_CLASS(counter_parent_class)->finalize(self);
  };
  g_object_class_install_property(
      object, kStats, g_param_spec_boxed("stats", "", "", GST_TYPE_STRUCTURE, G_PARAM_READABLE));
  g_object_class_install_property(
      object, kLatency, g_param_spec_uint("latency", "", "", 0, G_MAXUINT, 0, G_PARAM_READABLE));
}

// Takes the structure.
ObjectPtr<GstElement> makeCounter(GstStructure* stats) {
  auto* const made = static_cast<Counter*>(g_object_new(counter_get_type(), nullptr));
  made->stats = stats;
  return ObjectPtr<GstElement>(GST_ELEMENT(gst_object_ref_sink(made)));
}

GstStructure* source(const char* text) { return gst_structure_from_string(text, nullptr); }

// Takes the structures.
ObjectPtr<GstElement> makeSession(std::initializer_list<GstStructure*> sources) {
  GstStructure* const stats = gst_structure_new_empty("stats");
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  GValueArray* const list = g_value_array_new(0);
  for (GstStructure* const each : sources) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, GST_TYPE_STRUCTURE);
    g_value_take_boxed(&value, each);
    g_value_array_append(list, &value);
    g_value_unset(&value);
  }
  gst_structure_set(stats, "source-stats", g_value_array_get_type(), list, nullptr);
  g_value_array_free(list);
  G_GNUC_END_IGNORE_DEPRECATIONS
  return makeCounter(stats);
}

class RtpCountsTest : public testing::Test {
 protected:
  RtpCountsTest() { gst_init(nullptr, nullptr); }
};

TEST_F(RtpCountsTest, AreThoseOfEachSource) {
  const auto session = makeSession(
      {source("s, ssrc=(uint)7, internal=(boolean)true, packets-received=(guint64)10, "
              "bytes-received=(guint64)1280, octets-received=(guint64)880, clock-rate=(int)90000, "
              "jitter=(uint)0"),
       source("s, ssrc=(uint)8, internal=(boolean)false, packets-received=(guint64)5, "
              "bytes-received=(guint64)640, octets-received=(guint64)440, clock-rate=(int)48000, "
              "jitter=(uint)480"),
       source("s, ssrc=(uint)9, clock-rate=(int)-1, jitter=(uint)480")});
  const RtpCounts counts = countsOf(G_OBJECT(session.get()), {});
  ASSERT_EQ(counts.sources.size(), 3U);
  const SourceCounts& own = counts.sources.at(7);
  EXPECT_TRUE(own.isOwn);
  EXPECT_EQ(own.packets, 10U);
  EXPECT_EQ(own.bytes, 1000U) << "without what UDP and IP add";
  EXPECT_EQ(own.payloadBytes, 880U);
  EXPECT_EQ(own.clockRate, 90'000U);
  const SourceCounts& other = counts.sources.at(8);
  EXPECT_FALSE(other.isOwn);
  EXPECT_EQ(other.bytes, 500U);
  EXPECT_EQ(other.jitterMs, 10);
  EXPECT_EQ(counts.sources.at(9).clockRate, 0U);
  EXPECT_EQ(counts.sources.at(9).jitterMs, 0);
  EXPECT_TRUE(counts.reports.empty());
}

TEST_F(RtpCountsTest, HaveTheReportsOfWhatWeSend) {
  const auto session = makeSession(
      {source("s, ssrc=(uint)8, have-rb=(boolean)true, rb-ssrc=(uint)7, rb-fractionlost=(uint)64, "
              "rb-packetslost=(int)3, rb-jitter=(uint)900"),
       source("s, ssrc=(uint)7, internal=(boolean)true, clock-rate=(int)90000"),
       source("s, ssrc=(uint)9, have-rb=(boolean)true, rb-ssrc=(uint)6, rb-packetslost=(int)-2, "
              "rb-jitter=(uint)480"),
       source("s, ssrc=(uint)6, internal=(boolean)true, clock-rate=(int)48000"),
       source("s, ssrc=(uint)10, have-rb=(boolean)false, rb-ssrc=(uint)5, rb-packetslost=(int)1")});
  const RtpCounts counts = countsOf(G_OBJECT(session.get()), {});
  ASSERT_EQ(counts.reports.size(), 2U);
  const ReceiverReport& report = counts.reports.at(7);
  EXPECT_EQ(report.fractionLost, 0.25);
  EXPECT_EQ(report.lost, 3U);
  EXPECT_EQ(report.jitterMs, 10);
  EXPECT_EQ(counts.reports.at(6).jitterMs, 10);
  EXPECT_EQ(counts.reports.at(6).lost, 0U) << "more have arrived than were sent";
}

TEST_F(RtpCountsTest, HaveWhatTheJitterBufferMissed) {
  const auto session = makeSession({source("s, ssrc=(uint)8, packets-received=(guint64)5")});
  JitterBuffers buffers;
  buffers[8] = makeCounter(source("s, rtx-success-count=(guint64)4, num-lost=(guint64)2"));
  const SourceCounts counts = countsOf(G_OBJECT(session.get()), buffers).sources.at(8);
  EXPECT_EQ(counts.packets, 5U);
  EXPECT_EQ(counts.repaired, 4U);
  EXPECT_EQ(counts.missing, 2U);
  EXPECT_EQ(counts.longestWaitMs, kLatencyMs);
}

}  // namespace
}  // namespace webrtc
