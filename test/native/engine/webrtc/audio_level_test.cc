#include "engine/webrtc/audio_level.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

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

}  // namespace
}  // namespace webrtc
