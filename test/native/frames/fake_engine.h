// An engine for tests of the stream manager: it has nothing but frame managers.

#ifndef TEST_NATIVE_FRAMES_FAKE_ENGINE_H_
#define TEST_NATIVE_FRAMES_FAKE_ENGINE_H_

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>

#include "tesselclient/tesselclient.h"
#include "test/native/support/idle_engine.h"

namespace test {

class FakeEngine : public IdleEngine {
 public:
  MOCK_METHOD(std::shared_ptr<IFrameManager>, GetFrameManager, (const StreamKey&), (override));
};

class MockFrameManager : public IFrameManager {
 public:
  MOCK_METHOD(void, GetFrame, (std::uint32_t, VideoFrame&), (override));
  MOCK_METHOD(void, ReleaseFrame, (std::int64_t), (override));
  MOCK_METHOD(void, EnableFrameCapture, (), (override));
  MOCK_METHOD(void, DisableFrameCapture, (), (override));
  MOCK_METHOD(void, ReservedSlot6, (), (override));
  MOCK_METHOD(void, ReservedSlot7, (), (override));
  MOCK_METHOD(void, SetFrameReceiver, (std::shared_ptr<IFrameRecieveCallback>), (override));
};

// A frame without memory of its own.
class FakePicture : public QVXCommon::IVideoFrame {
 public:
  std::uint32_t frameWidth() const override { return 0; }
  std::uint32_t frameHeight() const override { return 0; }
  const std::uint8_t* frameBuffer() const override { return nullptr; }
  std::uint32_t frameValueA() const override { return 0; }
  std::uint32_t frameValueB() const override { return 0; }
  std::uint32_t frameValueC() const override { return 0; }
  std::uint64_t frameBufferSize() const override { return 0; }
};

class FakeReceiver : public IFrameRecieveCallback {
 public:
  void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame>, unsigned int,
                          const StreamKey&) override {}
};

}  // namespace test

#endif  // TEST_NATIVE_FRAMES_FAKE_ENGINE_H_
