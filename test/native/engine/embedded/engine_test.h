// An engine on a clock that the test drives, and the notifications that it gave.

#ifndef TEST_NATIVE_ENGINE_EMBEDDED_ENGINE_TEST_H_
#define TEST_NATIVE_ENGINE_EMBEDDED_ENGINE_TEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/embedded/embedded_engine.h"
#include "engine/support/engine_manager.h"
#include "engine/support/pictures/card_code.h"
#include "test/native/engine/support/manual_clock.h"
#include "test/native/engine/support/notification_recorder.h"

namespace embedded {

class EngineTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  EngineTest() {
    manager_->RegisterNotifyCallback(recorder_);
    manager_->Initialize();
    pass(support::Time(0));
    recorder_->takeLines();
  }

  void pass(support::Time span) { clock_->pass(span, manager_->session()->context().loop); }

  // Joins at once.
  void connect(const std::string& uri) { connect(uri, openState()); }
  void connect(const std::string& uri, const tsl::MediaStreamState& state) {
    tsl::ConnectParams params;
    params.uri = uri;
    params.mediaStreamState = state;
    connect(params);
  }
  void connect(const tsl::ConnectParams& params) {
    manager_->ConnectCall(params);
    pass(support::Time(0));
  }

  static tsl::MediaStreamState openState() { return {false, false, true, true, true}; }

  Lines takeLines() { return recorder_->takeLines(); }

  VideoFrame frameOf(const StreamKey& key, std::uint32_t lastId = 0) {
    VideoFrame frame;
    const auto stream = manager_->GetFrameManager(key);
    if (!stream) throw std::logic_error("no such stream");
    stream->GetFrame(lastId, frame);
    return frame;
  }

  static std::optional<support::CardCode> codeOf(const VideoFrame& frame) {
    if (frame.noUpdate) return std::nullopt;
    return support::readCode({frame.width, frame.height}, frame.yPlane.data);
  }

  support::EngineFactory engineFactory() const {
    return [pool = pool_](support::EngineContext& context) {
      return std::make_unique<EmbeddedEngine>(context, pool);
    };
  }

  const std::shared_ptr<support::ManualClock> clock_ = std::make_shared<support::ManualClock>();
  const std::shared_ptr<support::FramePool> pool_ =
      std::make_shared<support::FramePool>(std::size_t{16} << 20);
  const std::shared_ptr<support::NotificationRecorder> recorder_ =
      std::make_shared<support::NotificationRecorder>();
  const std::unique_ptr<support::EngineManager> manager_ =
      std::make_unique<support::EngineManager>(tsl::CreateParams(), clock_, engineFactory());
};

}  // namespace embedded

#endif  // TEST_NATIVE_ENGINE_EMBEDDED_ENGINE_TEST_H_
