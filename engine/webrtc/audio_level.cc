#include "engine/webrtc/audio_level.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace webrtc {
namespace {

using namespace std::chrono_literals;

// What the level element calls silence, in decibels; a full sine is 0.
constexpr double kSilence = -60;

// -42 dB: above the noise of a room, below a quiet voice.
constexpr unsigned kSpeech = 30;
// Longer than the pauses between words.
constexpr support::Time kLongestPause = 600ms;

}  // namespace

std::optional<unsigned> levelOf(GstMessage* message) {
  const GstStructure* const told = gst_message_get_structure(message);
  if (!told || !gst_structure_has_name(told, "level")) return std::nullopt;
  const GValue* const channels = gst_structure_get_value(told, "rms");
  // GStreamer gives the list of channels in a type that GLib has replaced.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  const GValue* const first =
      g_value_array_get_nth(static_cast<GValueArray*>(g_value_get_boxed(channels)), 0);
  G_GNUC_END_IGNORE_DEPRECATIONS
  if (!first) return std::nullopt;
  const double share = std::clamp(1 - g_value_get_double(first) / kSilence, 0.0, 1.0);
  return static_cast<unsigned>(std::lround(share * 100));
}

void SpeechDetector::heard(unsigned level) {
  if (level < kSpeech) return;
  timer_.runAt(loop_.now() + kLongestPause, [this] { set(false); });
  if (!isSpeaking_) set(true);
}

void SpeechDetector::set(bool isSpeaking) {
  isSpeaking_ = isSpeaking;
  changed_();
}

}  // namespace webrtc
