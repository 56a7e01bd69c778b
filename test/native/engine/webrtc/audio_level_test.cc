#include "engine/webrtc/audio_level.h"

#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "test/native/engine/support/manual_clock.h"

namespace webrtc {
namespace {

using namespace std::chrono_literals;
using support::Time;

class SpeechDetectorTest : public testing::Test {
 protected:
  SpeechDetectorTest() { loop_.start(nullptr); }
  ~SpeechDetectorTest() override { loop_.stop(); }

  void hear(unsigned level) {
    loop_.post([=, this] { detector_.heard(level); });
    pass(0s);
  }
  void pass(Time span) { clock_->pass(span, loop_); }

  const std::shared_ptr<support::ManualClock> clock_ = std::make_shared<support::ManualClock>();
  support::TaskLoop loop_{clock_, std::make_shared<const support::Log>("", "")};
  int changes_ = 0;
  SpeechDetector detector_{loop_, [this] { ++changes_; }};
};

TEST_F(SpeechDetectorTest, TakesLoudLevelsForSpeechAndQuietOnesForSilence) {
  hear(29);
  EXPECT_FALSE(detector_.isSpeaking());
  EXPECT_EQ(changes_, 0);
  hear(30);
  EXPECT_TRUE(detector_.isSpeaking());
  EXPECT_EQ(changes_, 1);
}

TEST_F(SpeechDetectorTest, IgnoresPausesBetweenWords) {
  for (int word = 0; word < 3; ++word) {
    hear(80);
    pass(400ms);
    hear(0);
    pass(199ms);
  }
  EXPECT_TRUE(detector_.isSpeaking());
  EXPECT_EQ(changes_, 1);
}

TEST_F(SpeechDetectorTest, TakesMissingLevelsForSilence) {
  hear(80);
  pass(599ms);
  EXPECT_TRUE(detector_.isSpeaking());
  pass(1ms);
  EXPECT_FALSE(detector_.isSpeaking());
  EXPECT_EQ(changes_, 2);
}

// What an element tells of two channels with these levels, in decibels.
std::optional<unsigned> levelTold(const char* name, double first, double second) {
  gst_init(nullptr, nullptr);
  GValueArray* channels = nullptr;
  GstStructure* const told = gst_structure_new_empty(name);
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  channels = g_value_array_new(2);
  for (const double decibels : {first, second}) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_DOUBLE);
    g_value_set_double(&value, decibels);
    g_value_array_append(channels, &value);
  }
  gst_structure_set(told, "rms", g_value_array_get_type(), channels, nullptr);
  g_value_array_free(channels);
  G_GNUC_END_IGNORE_DEPRECATIONS
  GstMessage* const message = gst_message_new_element(nullptr, told);
  const auto level = levelOf(message);
  gst_message_unref(message);
  return level;
}

TEST(AudioLevel, IsThatOfTheFirstChannel) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const auto& [decibels, level] :
       std::initializer_list<std::pair<double, unsigned>>{{-kInfinity, 0},
                                                          {-90, 0},
                                                          {-60, 0},
                                                          {-59.6, 1},
                                                          {-42, 30},
                                                          {-30, 50},
                                                          {0, 100},
                                                          {6, 100}}) {
    EXPECT_EQ(levelTold("level", decibels, -20), level) << decibels;
  }
  EXPECT_EQ(levelTold("spectrum", -20, -20), std::nullopt);
}

}  // namespace
}  // namespace webrtc
