#include "addon/frames/stream_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/diagnostic_line.h"
#include "test/native/frames/fake_engine.h"
#include "test/native/support/captured_output.h"

using frames::StreamManager;

namespace {

using test::FakeEngine;
using test::FakePicture;
using test::FakeReceiver;
using test::linesWrittenBy;
using test::MockFrameManager;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::Return;
using testing::StrictMock;
using testing::Throw;

constexpr StreamKey kLocal{TSLM_STREAM_LOCAL, 0};
constexpr StreamKey kRemote{TSLM_STREAM_REMOTE, 3};
constexpr auto kUnknownKind = static_cast<TSLM_STREAM_INDEX>(7);

VideoPlane planeOf(const std::uint8_t* data, std::uint32_t number) {
  return {data, number, number + 1, number + 2, number + 3};
}

// A record in which every field has a different value, with its own picture.
VideoFrame freshFrame(std::uint64_t frameId) {
  static const std::uint8_t pixels[3] = {};
  VideoFrame frame;
  frame.frameId = frameId;
  frame.csrc = 40;
  frame.frame = std::make_shared<FakePicture>();
  frame.width = 50;
  frame.height = 60;
  frame.engineValue = 70;
  frame.yPlane = planeOf(&pixels[0], 100);
  frame.uPlane = planeOf(&pixels[1], 200);
  frame.vPlane = planeOf(&pixels[2], 300);
  return frame;
}

// A record with invalid values, to show which fields are set.
VideoFrame usedFrame() { return freshFrame(99); }

void expectEqual(const VideoPlane& plane, const VideoPlane& expected) {
  EXPECT_EQ(plane.data, expected.data);
  EXPECT_EQ(plane.width, expected.width);
  EXPECT_EQ(plane.height, expected.height);
  EXPECT_EQ(plane.size, expected.size);
  EXPECT_EQ(plane.stride, expected.stride);
}

void expectEqual(const VideoFrame& frame, const VideoFrame& expected) {
  EXPECT_EQ(frame.noUpdate, expected.noUpdate);
  EXPECT_EQ(frame.clearFrame, expected.clearFrame);
  EXPECT_EQ(frame.frameId, expected.frameId);
  EXPECT_EQ(frame.csrc, expected.csrc);
  EXPECT_EQ(frame.frame, expected.frame);
  EXPECT_EQ(frame.width, expected.width);
  EXPECT_EQ(frame.height, expected.height);
  EXPECT_EQ(frame.engineValue, expected.engineValue);
  expectEqual(frame.yPlane, expected.yPlane);
  expectEqual(frame.uPlane, expected.uPlane);
  expectEqual(frame.vPlane, expected.vPlane);
}

// The answer for a stream without a frame: an empty record except for the two flags.
VideoFrame absentFrame() {
  VideoFrame frame;
  frame.noUpdate = true;
  frame.clearFrame = true;
  return frame;
}

// The engine and its frame managers complain about every call that a test does not expect.
class StreamManagerTest : public testing::Test {
 protected:
  void TearDown() override {
    linesWrittenBy([] { base::DiagnosticLine("").decimal(); });
  }

  // The engine answers the next question for the stream's frame manager with a new one, which only
  // the caller of the engine owns.
  MockFrameManager& expectFrameManager(const StreamKey& key) {
    auto frameManager = std::make_shared<StrictMock<MockFrameManager>>();
    MockFrameManager& expected = *frameManager;
    handedOut_ = frameManager;
    EXPECT_CALL(*engine_, GetFrameManager(key))
        .WillOnce([frameManager = std::move(frameManager)](const StreamKey&) mutable {
          return std::move(frameManager);
        })
        .RetiresOnSaturation();
    return expected;
  }
  void expectNoFrameManager(const StreamKey& key) {
    EXPECT_CALL(*engine_, GetFrameManager(key)).WillOnce(Return(nullptr)).RetiresOnSaturation();
  }
  bool frameManagerIsReleased() const { return handedOut_.expired(); }

  // The engine answers the next getFrame() for the stream with `frame`, of which nothing stays
  // behind here.
  void expectAnswer(const StreamKey& key, VideoFrame frame) {
    EXPECT_CALL(expectFrameManager(key), GetFrame(_, _))
        .WillOnce([answer = std::move(frame)](std::uint32_t, VideoFrame& filled) mutable {
          filled = std::move(answer);
        });
  }
  VideoFrame getFrame(const StreamKey& key) {
    VideoFrame frame;
    streams_->getFrame(key, 0, frame);
    return frame;
  }
  VideoFrame getLastFrame(const StreamKey& key) const {
    VideoFrame frame;
    streams_->getLastFrame(key, frame);
    return frame;
  }
  void expectRetained(const StreamKey& key,
                      const std::weak_ptr<QVXCommon::IVideoFrame>& picture) const {
    EXPECT_FALSE(picture.expired());
    EXPECT_EQ(getLastFrame(key).frame, picture.lock());
  }
  // The frame of an answer that getFrame() was given, now held by whoever retains it.
  std::weak_ptr<QVXCommon::IVideoFrame> pictureAfterGetFrame(const StreamKey& key,
                                                             VideoFrame answer) {
    const std::weak_ptr<QVXCommon::IVideoFrame> picture = answer.frame;
    expectAnswer(key, std::move(answer));
    getFrame(key);
    return picture;
  }

  std::shared_ptr<StrictMock<FakeEngine>> engine_ = std::make_shared<StrictMock<FakeEngine>>();
  std::unique_ptr<StreamManager> streams_ = std::make_unique<StreamManager>(engine_);

 private:
  std::weak_ptr<IFrameManager> handedOut_;
};

// ---- Construction and destruction

TEST_F(StreamManagerTest, HoldsTheEngineForAsLongAsItLives) {
  EXPECT_EQ(engine_.use_count(), 2);
  streams_.reset();
  EXPECT_EQ(engine_.use_count(), 1);
}

TEST_F(StreamManagerTest, ReleasesTheRetainedFramesAndThenTheEngine) {
  std::vector<std::string> released;
  struct Noting {
    Noting(std::vector<std::string>* list, std::string name) : log(list), what(std::move(name)) {}
    ~Noting() { log->push_back(what); }
    std::vector<std::string>* log;
    std::string what;
  };
  const auto noting = [&](const char* what) { return std::make_shared<Noting>(&released, what); };
  const auto pictureNoting = [&](const char* what) {
    static FakePicture picture;
    return std::shared_ptr<QVXCommon::IVideoFrame>(noting(what), &picture);
  };
  auto streams = std::make_unique<StreamManager>(
      std::shared_ptr<TSLM::TSLMManager>(noting("engine"), engine_.get()));
  for (const StreamKey& key : {kLocal, kRemote}) {
    VideoFrame answer = freshFrame(1);
    answer.frame = pictureNoting(key == kLocal ? "local" : "remote");
    expectAnswer(key, std::move(answer));
    VideoFrame frame;
    streams->getFrame(key, 0, frame);
  }

  EXPECT_THAT(released, IsEmpty());
  streams.reset();
  EXPECT_THAT(released, testing::UnorderedElementsAre("local", "remote", "engine"));
  EXPECT_EQ(released.back(), "engine");
}

// ---- Capture

TEST_F(StreamManagerTest, SwitchesCaptureOnInTheStreamsFrameManager) {
  EXPECT_CALL(expectFrameManager(kLocal), EnableFrameCapture());
  EXPECT_THAT(linesWrittenBy([&] { streams_->enableFrameCapture(kLocal); }), IsEmpty());
  EXPECT_TRUE(frameManagerIsReleased());
}

TEST_F(StreamManagerTest, SwitchesCaptureOffInTheStreamsFrameManager) {
  EXPECT_CALL(expectFrameManager(kRemote), DisableFrameCapture());
  EXPECT_THAT(linesWrittenBy([&] { streams_->disableFrameCapture(kRemote); }), IsEmpty());
  EXPECT_TRUE(frameManagerIsReleased());
}

TEST_F(StreamManagerTest, DoesNotSwitchCaptureWithoutAFrameManagerAndPrintsNothing) {
  expectNoFrameManager(kLocal);
  EXPECT_THAT(linesWrittenBy([&] { streams_->enableFrameCapture(kLocal); }), IsEmpty());
  expectNoFrameManager(kLocal);
  EXPECT_THAT(linesWrittenBy([&] { streams_->disableFrameCapture(kLocal); }), IsEmpty());
}

TEST_F(StreamManagerTest, FetchesTheFrameManagerForEachOperation) {
  EXPECT_CALL(expectFrameManager(kLocal), EnableFrameCapture());
  streams_->enableFrameCapture(kLocal);
  EXPECT_CALL(expectFrameManager(kLocal), DisableFrameCapture());
  streams_->disableFrameCapture(kLocal);
}

TEST_F(StreamManagerTest, DoesNothingWhenAStreamIsAddedOrRemoved) {
  const auto picture = pictureAfterGetFrame(kRemote, freshFrame(1));
  EXPECT_THAT(linesWrittenBy([&] {
                streams_->streamAdded(kRemote);
                streams_->streamRemoved(kRemote);
              }),
              IsEmpty());
  expectRetained(kRemote, picture);
}

// ---- Releasing a frame

TEST_F(StreamManagerTest, ReleasesAFrameByItsWholeId) {
  for (const std::int64_t frameId :
       {std::int64_t{0}, std::int64_t{-7}, (std::int64_t{1} << 32) + 5,
        std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_CALL(expectFrameManager(kRemote), ReleaseFrame(frameId));
    EXPECT_THAT(linesWrittenBy([&] { streams_->releaseFrame(kRemote, frameId); }), IsEmpty());
    EXPECT_TRUE(frameManagerIsReleased());
  }
}

TEST_F(StreamManagerTest, ReleasesNoFrameWithoutAFrameManagerAndPrintsNothing) {
  expectNoFrameManager(kRemote);
  EXPECT_THAT(linesWrittenBy([&] { streams_->releaseFrame(kRemote, 1); }), IsEmpty());
}

TEST_F(StreamManagerTest, KeepsTheRetainedFrameWhenAFrameIsReleased) {
  const auto picture = pictureAfterGetFrame(kRemote, freshFrame(1));
  EXPECT_CALL(expectFrameManager(kRemote), ReleaseFrame(1));
  streams_->releaseFrame(kRemote, 1);
  EXPECT_FALSE(picture.expired());
}

// ---- Getting a frame

TEST_F(StreamManagerTest, RequestsAFrameByTheLow32BitsOfTheId) {
  const std::vector<std::pair<std::int64_t, std::uint32_t>> ids = {
      {0, 0},
      {5, 5},
      {4294967295, 4294967295},
      {4294967296, 0},
      {4294967301, 5},
      {-1, 4294967295},
      {-4294967296, 0},
      {std::numeric_limits<std::int64_t>::min(), 0},
      {std::numeric_limits<std::int64_t>::max(), 4294967295},
  };
  for (const auto& [frameId, asked] : ids) {
    EXPECT_CALL(expectFrameManager(kLocal), GetFrame(asked, _));
    VideoFrame frame;
    streams_->getFrame(kLocal, frameId, frame);
    EXPECT_TRUE(frameManagerIsReleased());
  }
}

TEST_F(StreamManagerTest, ReturnsTheFrameThatTheFrameManagerFillsIn) {
  for (const bool noUpdate : {false, true}) {
    for (const bool clearFrame : {false, true}) {
      VideoFrame answer = freshFrame(0x123456789abcdef0);
      answer.noUpdate = noUpdate;
      answer.clearFrame = clearFrame;
      expectAnswer(kLocal, answer);
      VideoFrame frame = usedFrame();
      EXPECT_THAT(linesWrittenBy([&] { streams_->getFrame(kLocal, 0, frame); }), IsEmpty());
      expectEqual(frame, answer);
    }
  }
}

TEST_F(StreamManagerTest, ReturnsClearAndNoUpdateForAStreamWithoutAFrameManager) {
  expectNoFrameManager(kRemote);
  VideoFrame frame = usedFrame();
  EXPECT_THAT(linesWrittenBy([&] { streams_->getFrame(kRemote, 1, frame); }), IsEmpty());
  expectEqual(frame, absentFrame());
}

// ---- Retaining the last fresh frame

TEST_F(StreamManagerTest, RetainsAFreshFrameWithAllItsFields) {
  const VideoFrame answer = freshFrame(0x123456789abcdef0);
  expectAnswer(kRemote, answer);
  getFrame(kRemote);
  EXPECT_EQ(answer.frame.use_count(), 2);  // one here, one retained

  VideoFrame last = usedFrame();
  EXPECT_THAT(linesWrittenBy([&] { streams_->getLastFrame(kRemote, last); }), IsEmpty());
  expectEqual(last, answer);
  EXPECT_EQ(answer.frame.use_count(), 3);
}

TEST_F(StreamManagerTest, ReturnsTheLastFrameOnEveryRequest) {
  const auto picture = pictureAfterGetFrame(kRemote, freshFrame(1));
  for (int i = 0; i < 3; ++i) expectRetained(kRemote, picture);
}

TEST_F(StreamManagerTest, ReturnsClearAndNoUpdateForAStreamThatWasNeverFetched) {
  VideoFrame frame = usedFrame();
  EXPECT_THAT(linesWrittenBy([&] { streams_->getLastFrame(kRemote, frame); }), IsEmpty());
  expectEqual(frame, absentFrame());
}

TEST_F(StreamManagerTest, ReleasesARetainedFrameWhenTheNextFreshOneArrives) {
  const auto first = pictureAfterGetFrame(kRemote, freshFrame(1));
  EXPECT_FALSE(first.expired());
  const auto second = pictureAfterGetFrame(kRemote, freshFrame(2));
  EXPECT_TRUE(first.expired());
  expectRetained(kRemote, second);
  EXPECT_EQ(getLastFrame(kRemote).frameId, 2);
}

TEST_F(StreamManagerTest, ReleasesTheRetainedFramesWhenItIsDestroyed) {
  const auto local = pictureAfterGetFrame(kLocal, freshFrame(1));
  const auto remote = pictureAfterGetFrame(kRemote, freshFrame(2));
  streams_.reset();
  EXPECT_TRUE(local.expired());
  EXPECT_TRUE(remote.expired());
}

TEST_F(StreamManagerTest, RetainsNoFrameThatIsNoUpdateOrToBeCleared) {
  const auto retained = pictureAfterGetFrame(kRemote, freshFrame(1));
  for (const auto& [noUpdate, clearFrame] :
       {std::pair{true, false}, std::pair{false, true}, std::pair{true, true}}) {
    VideoFrame answer = freshFrame(2);
    answer.noUpdate = noUpdate;
    answer.clearFrame = clearFrame;
    EXPECT_TRUE(pictureAfterGetFrame(kRemote, std::move(answer)).expired());
    expectRetained(kRemote, retained);
    EXPECT_EQ(getLastFrame(kRemote).frameId, 1);
  }
}

TEST_F(StreamManagerTest, KeepsTheRetainedFrameWhenTheStreamLosesItsFrameManager) {
  const auto retained = pictureAfterGetFrame(kRemote, freshFrame(1));
  expectNoFrameManager(kRemote);
  expectEqual(getFrame(kRemote), absentFrame());
  expectRetained(kRemote, retained);
}

TEST_F(StreamManagerTest, RetainsAFrameForEachStream) {
  const std::vector<StreamKey> keys = {{TSLM_STREAM_LOCAL, 0},   {TSLM_STREAM_REMOTE, 0},
                                       {TSLM_STREAM_CONTENT, 0}, {TSLM_STREAM_REMOTE, 1},
                                       {TSLM_STREAM_REMOTE, -1}, {kUnknownKind, 0}};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    expectAnswer(keys[i], freshFrame(i));
    getFrame(keys[i]);
  }
  for (std::size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(getLastFrame(keys[i]).frameId, i);
}

TEST_F(StreamManagerTest, KeepsTheRetainedFrameWhenTheEngineThrows) {
  const auto retained = pictureAfterGetFrame(kRemote, freshFrame(1));

  EXPECT_CALL(*engine_, GetFrameManager(kRemote)).WillOnce(Throw(std::runtime_error("engine")));
  EXPECT_THROW(getFrame(kRemote), std::runtime_error);
  expectRetained(kRemote, retained);

  EXPECT_CALL(expectFrameManager(kRemote), GetFrame(_, _))
      .WillOnce([](std::uint32_t, VideoFrame& frame) {
        frame = freshFrame(2);
        throw std::runtime_error("frame manager");
      });
  EXPECT_THROW(getFrame(kRemote), std::runtime_error);
  expectRetained(kRemote, retained);
  EXPECT_TRUE(frameManagerIsReleased());
}

// ---- Receivers of pushed frames

TEST_F(StreamManagerTest, AttachesAReceiver) {
  const std::shared_ptr<IFrameRecieveCallback> receiver = std::make_shared<FakeReceiver>();
  EXPECT_CALL(expectFrameManager(kRemote), SetFrameReceiver(receiver));
  bool isAttached = false;
  EXPECT_THAT(
      linesWrittenBy([&] { isAttached = streams_->registerFrameReciever(kRemote, receiver); }),
      IsEmpty());
  EXPECT_TRUE(isAttached);
  EXPECT_TRUE(frameManagerIsReleased());
}

TEST_F(StreamManagerTest, SharesAnAttachedReceiverWithTheFrameManagerAlone) {
  const std::shared_ptr<IFrameRecieveCallback> receiver = std::make_shared<FakeReceiver>();
  std::shared_ptr<IFrameRecieveCallback> attached;
  EXPECT_CALL(expectFrameManager(kRemote), SetFrameReceiver(_))
      .WillOnce(testing::SaveArg<0>(&attached));
  streams_->registerFrameReciever(kRemote, receiver);
  EXPECT_EQ(attached, receiver);
  EXPECT_EQ(receiver.use_count(), 2);  // `receiver` and `attached`
}

TEST_F(StreamManagerTest, DetachesTheReceiverWithAnEmptyOne) {
  EXPECT_CALL(expectFrameManager(kRemote), SetFrameReceiver(IsNull()));
  bool isDetached = false;
  EXPECT_THAT(linesWrittenBy([&] { isDetached = streams_->unregisterFrameReciever(kRemote); }),
              IsEmpty());
  EXPECT_TRUE(isDetached);
  EXPECT_TRUE(frameManagerIsReleased());
}

class WithoutFrameManager : public StreamManagerTest,
                            public testing::WithParamInterface<std::pair<StreamKey, std::string>> {
 protected:
  // The lines of attaching and detaching a receiver without a frame manager.
  std::vector<std::string> linesOfBoth() {
    const auto& [key, text] = GetParam();
    expectNoFrameManager(key);
    expectNoFrameManager(key);
    bool isAttached = true;
    bool isDetached = true;
    std::vector<std::string> lines = linesWrittenBy([&, key = key] {
      isAttached = streams_->registerFrameReciever(key, std::make_shared<FakeReceiver>());
      isDetached = streams_->unregisterFrameReciever(key);
    });
    EXPECT_FALSE(isAttached);
    EXPECT_FALSE(isDetached);
    return lines;
  }
  static auto expectedLines() {
    const std::string rest = ": Frame handler pointer not found for stream " + GetParam().second;
    return ElementsAre("registerFrameReciever" + rest, "unregisterFrameReciever" + rest);
  }
};

TEST_P(WithoutFrameManager, PrintsThatNoReceiverIsAttachedOrDetached) {
  EXPECT_THAT(linesOfBoth(), expectedLines());
}

TEST_P(WithoutFrameManager, PrintsItInDecimalWhateverTheBaseOfOtherLines) {
  linesWrittenBy([] { base::DiagnosticLine("").hexadecimal(); });
  EXPECT_THAT(linesOfBoth(), expectedLines());
  // The base is left as it was.
  EXPECT_THAT(linesWrittenBy([] { base::DiagnosticLine("").integer(255); }), ElementsAre("ff"));
}

INSTANTIATE_TEST_SUITE_P(
    StreamManagerTest, WithoutFrameManager,
    testing::Values(std::pair{StreamKey{TSLM_STREAM_REMOTE, 0}, "key:1, index:0"},
                    std::pair{StreamKey{TSLM_STREAM_LOCAL, 49}, "key:0, index:49"},
                    std::pair{StreamKey{TSLM_STREAM_CONTENT, -12}, "key:2, index:-12"},
                    std::pair{StreamKey{TSLM_STREAM_REMOTE, std::numeric_limits<int>::max()},
                              "key:1, index:2147483647"},
                    std::pair{StreamKey{static_cast<TSLM_STREAM_INDEX>(-30), 10},
                              "key:-30, index:10"}));

TEST_F(StreamManagerTest, PassesOnWhatTheEngineThrowsToItsOperations) {
  const std::vector<std::pair<std::string, std::function<void()>>> operations = {
      {"enableFrameCapture", [&] { streams_->enableFrameCapture(kLocal); }},
      {"disableFrameCapture", [&] { streams_->disableFrameCapture(kLocal); }},
      {"releaseFrame", [&] { streams_->releaseFrame(kLocal, 1); }},
      {"registerFrameReciever", [&] { streams_->registerFrameReciever(kLocal, nullptr); }},
      {"unregisterFrameReciever", [&] { streams_->unregisterFrameReciever(kLocal); }},
  };
  for (const auto& [name, operation] : operations) {
    EXPECT_CALL(*engine_, GetFrameManager(kLocal))
        .WillOnce(Throw(std::runtime_error("engine")))
        .RetiresOnSaturation();
    EXPECT_THROW(operation(), std::runtime_error) << name;
  }
}

}  // namespace
