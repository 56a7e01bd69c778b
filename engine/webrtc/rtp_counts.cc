#include "engine/webrtc/rtp_counts.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace webrtc {
namespace {

using StructurePtr = std::unique_ptr<GstStructure, ReleasedBy<gst_structure_free>>;

// What the session adds to the size of each packet for UDP and IP.
constexpr std::uint64_t kLowerHeaders = 28;

// The value of a field; 0 when there is none of this type.
template <typename T>
T fieldOf(const GstStructure* structure, const char* name, GType type) {
  T value = {};
  gst_structure_get(structure, name, type, &value, nullptr);
  return value;
}

std::uint32_t number(const GstStructure* structure, const char* name) {
  return fieldOf<guint>(structure, name, G_TYPE_UINT);
}

std::uint64_t count(const GstStructure* structure, const char* name) {
  return fieldOf<guint64>(structure, name, G_TYPE_UINT64);
}

bool isSet(const GstStructure* structure, const char* name) {
  return fieldOf<gboolean>(structure, name, G_TYPE_BOOLEAN) != FALSE;
}

double milliseconds(std::uint32_t ticks, std::uint32_t clockRate) {
  return clockRate == 0 ? 0 : 1000.0 * ticks / clockRate;
}

SourceCounts sourceOf(const GstStructure* stats) {
  SourceCounts counts;
  counts.isOwn = isSet(stats, "internal");
  // The session counts what it sends in the fields of what is received, too.
  counts.packets = count(stats, "packets-received");
  counts.bytes = count(stats, "bytes-received") - kLowerHeaders * counts.packets;
  counts.payloadBytes = count(stats, "octets-received");
  // -1 until it is known.
  counts.clockRate =
      static_cast<std::uint32_t>(std::max(fieldOf<gint>(stats, "clock-rate", G_TYPE_INT), 0));
  counts.jitterMs = milliseconds(number(stats, "jitter"), counts.clockRate);
  return counts;
}

void addReport(const GstStructure* stats, RtpCounts& counts) {
  if (!isSet(stats, "have-rb")) return;
  const std::uint32_t ssrc = number(stats, "rb-ssrc");
  constexpr double kWhole = 256;
  // Packets that were received twice make the count negative.
  const gint lost = std::max(fieldOf<gint>(stats, "rb-packetslost", G_TYPE_INT), 0);
  counts.reports[ssrc] = {
      .fractionLost = number(stats, "rb-fractionlost") / kWhole,
      .lost = static_cast<std::uint32_t>(lost),
      .jitterMs = milliseconds(number(stats, "rb-jitter"), counts.sources[ssrc].clockRate)};
}

}  // namespace

RtpCounts countsOf(GObject* session, const JitterBuffers& jitterBuffers) {
  const StructurePtr stats(property<GstStructure*>(session, "stats"));
  // GStreamer gives the list in a type that GLib has replaced.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  const auto* const list = static_cast<const GValueArray*>(
      g_value_get_boxed(gst_structure_get_value(stats.get(), "source-stats")));
  std::vector<const GstStructure*> sources;
  for (guint i = 0; i < list->n_values; ++i) {
    sources.push_back(gst_value_get_structure(&list->values[i]));
  }
  G_GNUC_END_IGNORE_DEPRECATIONS
  RtpCounts counts;
  for (const GstStructure* const source : sources) {
    counts.sources[number(source, "ssrc")] = sourceOf(source);
  }
  for (const GstStructure* const source : sources) addReport(source, counts);
  for (const auto& [ssrc, buffer] : jitterBuffers) {
    const StructurePtr buffered(property<GstStructure*>(buffer.get(), "stats"));
    SourceCounts& source = counts.sources[ssrc];
    source.repaired = count(buffered.get(), "rtx-success-count");
    source.missing = count(buffered.get(), "num-lost");
    source.longestWaitMs = property<guint>(buffer.get(), "latency");
  }
  return counts;
}

}  // namespace webrtc
