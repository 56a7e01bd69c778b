// Calls from joining to their end, as the application sees them.

#include <set>

#include "engine/embedded/streams/identity.h"
#include "engine/support/streams/stream_keys.h"
#include "test/native/engine/embedded/engine_test.h"
#include "test/native/engine/support/temporary_directory.h"

namespace embedded {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using CallTest = EngineTest;

TEST_F(CallTest, AParticipantsFramesArriveAfterTheJoin) {
  connect("tessel:demo?participants=2");
  EXPECT_THAT(takeLines(), ElementsAre("connected", "added remote 0", "added remote 1"));
  for (const int number : {0, 1}) {
    const VideoFrame frame = frameOf(support::remoteStream(number));
    EXPECT_FALSE(frame.noUpdate);
    EXPECT_EQ(frame.frameId, 1U);
    EXPECT_EQ(frame.csrc, csrcOf(1, support::remoteStream(number)));
    EXPECT_EQ(frame.width, 640U);
    EXPECT_EQ(frame.height, 360U);
    EXPECT_EQ(codeOf(frame), (support::CardCode{1, static_cast<std::uint8_t>(number), 1, 0}));
  }
}

TEST_F(CallTest, FramesArriveAtTheRateInTheUri) {
  connect("tessel:demo?participants=1&fps=10");
  pass(999ms);
  EXPECT_EQ(frameOf(support::remoteStream(0)).frameId, 10U);
  pass(1ms);
  const VideoFrame frame = frameOf(support::remoteStream(0));
  EXPECT_EQ(frame.frameId, 11U);
  EXPECT_EQ(codeOf(frame)->number, 11U);
}

TEST_F(CallTest, FramesHaveTheSizeInTheUri) {
  connect("tessel:demo?participants=1&size=641x361");
  const VideoFrame frame = frameOf(support::remoteStream(0));
  EXPECT_EQ(frame.width, 641U);
  EXPECT_EQ(frame.height, 361U);
  EXPECT_EQ(frame.uPlane.width, 321U);
  EXPECT_EQ(frame.uPlane.height, 181U);
  EXPECT_EQ(frame.vPlane.data + frame.vPlane.size,
            frame.frame->frameBuffer() + std::ptrdiff_t{641} * 361 + std::ptrdiff_t{2} * 321 * 181);
  EXPECT_TRUE(codeOf(frame));
}

TEST_F(CallTest, ParticipantsJoinAndLeaveAtTheirTimes) {
  connect("tessel:demo?participants=1&come=7@2.5&leave=0@3,7@4&come=7@5");
  takeLines();
  pass(2499ms);
  EXPECT_THAT(takeLines(), IsEmpty());
  EXPECT_EQ(manager_->GetFrameManager(support::remoteStream(7)), nullptr);
  pass(1ms);
  EXPECT_THAT(takeLines(), ElementsAre("added remote 7"));
  EXPECT_EQ(codeOf(frameOf(support::remoteStream(7)))->index, 7);
  pass(500ms);
  EXPECT_THAT(takeLines(), ElementsAre("removed remote 0"));
  EXPECT_EQ(manager_->GetFrameManager(support::remoteStream(0)), nullptr);
  pass(2s);
  EXPECT_THAT(takeLines(), ElementsAre("removed remote 7", "added remote 7"));
  EXPECT_EQ(frameOf(support::remoteStream(7)).frameId, 1U);
}

TEST_F(CallTest, AnEndedStreamHasNoFramesAndStaysSafeToUse) {
  connect("tessel:demo?participants=1&leave=0@1");
  const auto stream = manager_->GetFrameManager(support::remoteStream(0));
  VideoFrame held;
  stream->GetFrame(0, held);
  const std::vector<std::uint8_t> before(held.yPlane.data, held.yPlane.data + held.yPlane.size);
  pass(2s);
  manager_->DeInitialize();
  VideoFrame frame;
  stream->GetFrame(0, frame);
  EXPECT_TRUE(frame.noUpdate);
  EXPECT_TRUE(frame.clearFrame);
  EXPECT_EQ(frame.frameId, 0U);
  EXPECT_THAT(before, testing::ElementsAreArray(held.yPlane.data, held.yPlane.size));
}

TEST_F(CallTest, FiftyParticipantsAreSupported) {
  connect("tessel:demo?participants=50&size=64x36");
  EXPECT_EQ(codeOf(frameOf(support::remoteStream(49)))->index, 49);
  EXPECT_EQ(manager_->GetFrameManager(support::remoteStream(50)), nullptr);
}

TEST_F(CallTest, LeavingRemovesTheStreamsAndNotifiesIt) {
  connect("tessel:demo?participants=2");
  takeLines();
  manager_->DisconnectCall();
  pass(0s);
  EXPECT_THAT(takeLines(), ElementsAre("removed remote 0", "removed remote 1", "not connected",
                                       "disconnect 1 0 the call was left"));
  manager_->DisconnectCall();
  pass(10s);
  EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(CallTest, AnotherCallCanFollow) {
  connect("tessel:demo?participants=1");
  manager_->DisconnectCall();
  connect("tessel:demo?participants=1&size=64x36");
  EXPECT_EQ(frameOf(support::remoteStream(0)).width, 64U);
}

TEST_F(CallTest, ASecondCallIsRefusedAndTheFirstContinues) {
  connect("tessel:demo?participants=1");
  takeLines();
  connect("tessel:demo?participants=3");
  EXPECT_THAT(takeLines(), ElementsAre("disconnect 2 486 already in a call"));
  pass(1s);
  EXPECT_EQ(frameOf(support::remoteStream(0)).frameId, 31U);
}

TEST_F(CallTest, ASecondCallIsRefusedWhileTheFirstIsJoining) {
  connect("tessel:demo?join=5");
  connect("tessel:demo");
  EXPECT_THAT(takeLines(), ElementsAre("disconnect 2 486 already in a call"));
}

TEST_F(CallTest, JoiningTakesTheTimeInTheUri) {
  connect("tessel:demo?participants=0&join=1.5");
  pass(1499ms);
  EXPECT_THAT(takeLines(), IsEmpty());
  pass(1ms);
  EXPECT_THAT(takeLines(), ElementsAre("connected"));
}

TEST_F(CallTest, ACallMayBeLeftWhileItIsJoining) {
  connect("tessel:demo?join=5");
  manager_->DisconnectCall();
  pass(10s);
  EXPECT_THAT(takeLines(), ElementsAre("not connected", "disconnect 1 0 the call was left"));
}

TEST_F(CallTest, AMeetingMayRefuseTheJoin) {
  connect("tessel:demo?refuse=403");
  EXPECT_THAT(takeLines(),
              ElementsAre("not connected", "disconnect 1 403 the meeting refused the join"));
}

TEST_F(CallTest, AMeetingMayDropTheCall) {
  connect("tessel:demo?participants=1&drop=2");
  takeLines();
  pass(2s);
  EXPECT_THAT(takeLines(), ElementsAre("removed remote 0", "not connected",
                                       "disconnect 1 503 the call was dropped"));
  pass(10s);
  EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(CallTest, AUriThatCannotBeServedIsRefusedWithAReason) {
  connect("sip:someone@example.org");
  connect("tessel:demo?colour=red");
  EXPECT_THAT(takeLines(),
              ElementsAre("not connected", "disconnect 1 400 the uri's scheme is not tessel",
                          "not connected", "disconnect 2 400 unknown parameter: colour"));
}

TEST_F(CallTest, AClipThatCannotBePlayedIsRefusedWithAReason) {
  const support::TemporaryDirectory directory;
  connect("tessel:demo?video=" + directory.write("note.y4m", "no clip"));
  connect("tessel:demo?video=" + (directory.path() / "none.y4m").string());
  EXPECT_THAT(takeLines(),
              ElementsAre("not connected", "disconnect 1 415 the clip is not a YUV4MPEG2 file",
                          "not connected",
                          "disconnect 2 404 the clip cannot be opened: No such file or directory"));
}

TEST_F(CallTest, EnabledGracefulEventsAreReported) {
  tsl::ConnectParams params;
  params.uri = "tessel:demo?participants=0";
  params.gracefulEvents = {{"one", true}, {"two", false}, {"three", true}};
  connect(params);
  EXPECT_THAT(takeLines(), ElementsAre("connected", "graceful one on", "graceful three on"));
}

TEST_F(CallTest, TheLocalParticipantsLevelIsReportedFiveTimesASecond) {
  connect("tessel:demo?speak=me@1-2");
  recorder_->takeLevels();
  pass(999ms);
  EXPECT_THAT(recorder_->takeLevels(), ElementsAre(0, 0, 0, 0));
  pass(1s);
  const auto levels = recorder_->takeLevels();
  EXPECT_EQ(levels.size(), 5U);
  EXPECT_THAT(levels, testing::Each(testing::AllOf(testing::Ge(40U), testing::Le(100U))));
  pass(1s);
  EXPECT_THAT(recorder_->takeLevels(), ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(CallTest, NoLevelIsReportedWhileTheMicrophoneIsMuted) {
  connect("tessel:demo?participants=0");
  takeLines();
  manager_->MuteLocalAudio(true);
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("mute 1 on"));
  recorder_->takeLevels();
  pass(1s);
  EXPECT_THAT(recorder_->takeLevels(), IsEmpty());
  manager_->MuteLocalAudio(false);
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("mute 1 off"));
  EXPECT_EQ(recorder_->takeLevels().size(), 5U);
}

TEST_F(CallTest, TheCameraDeliversFramesWhileCaptureIsEnabled) {
  EXPECT_TRUE(frameOf(support::kLocalStream).noUpdate);
  manager_->EnableCameraCapture(true);
  pass(0s);
  EXPECT_THAT(takeLines(), ElementsAre("added local 0"));
  EXPECT_EQ(codeOf(frameOf(support::kLocalStream)), (support::CardCode{0, 0, 1, 0}));
  pass(1s);
  EXPECT_EQ(frameOf(support::kLocalStream).frameId, 31U);
  manager_->EnableCameraCapture(false);
  pass(0s);
  EXPECT_THAT(takeLines(), ElementsAre("removed local 0"));
  EXPECT_TRUE(frameOf(support::kLocalStream).clearFrame);
  manager_->EnableCameraCapture(true);
  pass(0s);
  EXPECT_EQ(frameOf(support::kLocalStream).frameId, 32U);
}

TEST_F(CallTest, NoLocalFramesArriveWhileTheVideoIsMuted) {
  manager_->EnableCameraCapture(true);
  pass(0s);
  takeLines();
  manager_->MuteLocalVideo(true);
  pass(1s);
  EXPECT_THAT(takeLines(), ElementsAre("updated local 0", "mute 0 on"));
  EXPECT_TRUE(frameOf(support::kLocalStream).noUpdate);
  EXPECT_TRUE(frameOf(support::kLocalStream).clearFrame);
  manager_->MuteLocalVideo(false);
  pass(0s);
  EXPECT_THAT(takeLines(), ElementsAre("updated local 0", "mute 0 off"));
  EXPECT_FALSE(frameOf(support::kLocalStream).noUpdate);
}

TEST_F(CallTest, AStreamWhoseCaptureIsDisabledHasNoFrames) {
  connect("tessel:demo?participants=1");
  const auto stream = manager_->GetFrameManager(support::remoteStream(0));
  stream->DisableFrameCapture();
  pass(1s);
  EXPECT_TRUE(frameOf(support::remoteStream(0)).noUpdate);
  EXPECT_TRUE(frameOf(support::remoteStream(0)).clearFrame);
  stream->EnableFrameCapture();
  pass(1s);
  EXPECT_EQ(frameOf(support::remoteStream(0)).frameId, 31U);
}

TEST_F(CallTest, TheSameSeedGivesTheSameMeeting) {
  const auto play = [this](const std::string& seed) {
    connect("tessel:demo?participants=3&size=80x46&seed=" + seed);
    std::vector<std::vector<std::uint8_t>> pictures;
    for (int i = 0; i < 20; ++i) {
      pass(500ms);
      for (int number = 0; number < 3; ++number) {
        const VideoFrame frame = frameOf(support::remoteStream(number));
        const std::uint8_t* const start = frame.frame->frameBuffer();
        pictures.emplace_back(start, start + frame.frame->frameBufferSize());
      }
    }
    manager_->DisconnectCall();
    pass(0s);
    return std::pair(pictures, recorder_->takeLevels());
  };
  const auto first = play("7");
  EXPECT_EQ(play("7"), first);
  EXPECT_NE(play("8").first, first.first);
  EXPECT_NE(play("8").second, first.second);
}

TEST_F(CallTest, AClipsFramesArriveByteForByte) {
  constexpr support::Size kSize = {7, 5};
  constexpr std::size_t kFrames = 4;
  std::string clip = "YUV4MPEG2 W7 H5 F25:1\n";
  std::vector<std::string> frames;
  for (std::size_t i = 0; i < kFrames; ++i) {
    frames.emplace_back(support::i420Bytes(kSize), static_cast<char>('a' + i));
    frames.back()[i] = '!';
    clip += "FRAME\n" + frames.back();
  }
  const support::TemporaryDirectory directory;
  connect("tessel:demo?participants=1&video=" + directory.write("clip.y4m", clip));
  for (std::size_t i = 0; i < 2 * kFrames; ++i) {
    const VideoFrame frame = frameOf(support::remoteStream(0));
    ASSERT_EQ(frame.frameId, i + 1);
    const auto* const start = reinterpret_cast<const char*>(frame.frame->frameBuffer());
    EXPECT_EQ(std::string(start, frame.frame->frameBufferSize()), frames[i % kFrames]);
    pass(40ms);
  }
}

TEST_F(CallTest, AClipThatIsPlayedOnceEndsWithItsLastFrame) {
  const support::TemporaryDirectory directory;
  const std::string clip = directory.write("clip.y4m", "YUV4MPEG2 W1 H1\nFRAME\nabcFRAME\ndef");
  connect("tessel:demo?participants=1&loop=0&fps=10&video=" + clip);
  pass(10s);
  EXPECT_EQ(frameOf(support::remoteStream(0)).frameId, 2U);
  EXPECT_EQ(*frameOf(support::remoteStream(0)).vPlane.data, 'f');
}

}  // namespace
}  // namespace embedded
