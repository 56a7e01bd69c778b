// What becomes of a camera that stops showing pictures: a device of the test's that shows one when
// it is told to, in an engine on a clock that the test drives.

#include "engine/webrtc/local_video.h"

#include <gmock/gmock.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "engine/support/engine_manager.h"
#include "engine/support/streams/stream_keys.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/webrtc_engine.h"
#include "test/native/engine/support/manual_clock.h"
#include "test/native/engine/support/notification_recorder.h"
#include "test/native/engine/webrtc/broken_element.h"

namespace webrtc {
namespace {

using namespace std::chrono_literals;

constexpr const char* kFormat = "video/x-raw,format=I420,width=320,height=180,framerate=30/1";
constexpr std::size_t kPictureBytes = std::size_t{320} * 180 * 3 / 2;

// What has captured with the device so far, in order. Made on the engine's thread, and read while
// that has nothing to do.
std::vector<ObjectPtr<GstElement>>& captures() {
  static std::vector<ObjectPtr<GstElement>> made;
  return made;
}

GstElement* capture(GstDevice*, const gchar*) {
  GstElement* const source = gst_element_factory_make("appsrc", nullptr);
  const CapsPtr caps(gst_caps_from_string(kFormat));
  g_object_set(source, "caps", caps.get(), "is-live", TRUE, "format", GST_FORMAT_TIME, nullptr);
  captures().push_back(share(source));
  return source;
}

using TestCamera = GstDevice;
using TestCameraClass = GstDeviceClass;
// NOLINTNEXTLINE: the macro's own code
G_DEFINE_TYPE(TestCamera, test_camera, GST_TYPE_DEVICE)
void test_camera_init(TestCamera*) {}
void test_camera_class_init(TestCameraClass* klass) { klass->create_element = capture; }

using TestProvider = GstDeviceProvider;
using TestProviderClass = GstDeviceProviderClass;
// NOLINTNEXTLINE: the macro's own code
G_DEFINE_TYPE(TestProvider, test_provider, GST_TYPE_DEVICE_PROVIDER)
void test_provider_init(TestProvider*) {}
void test_provider_class_init(TestProviderClass* klass) {
  gst_device_provider_class_set_static_metadata(klass, "Camera of a test", "Source/Video",
                                                "Shows what a test gives it", "tessel");
  klass->start = [](GstDeviceProvider* self) -> gboolean {
    const CapsPtr caps(gst_caps_from_string(kFormat));
    auto* const device = g_object_new(test_camera_get_type(), "display-name", "camera",
                                      "device-class", "Video/Source", "caps", caps.get(), nullptr);
    gst_device_provider_device_add(self, GST_DEVICE(device));
    return TRUE;
  };
  klass->stop = [](GstDeviceProvider*) {};
}

class LocalVideoTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    // No device of the machine's.
    setenv("PULSE_SERVER", "unix:/nowhere", 1);
    setenv("PIPEWIRE_REMOTE", "nowhere", 1);
    gst_init(nullptr, nullptr);
    gst_device_provider_register(nullptr, "testcameraprovider", GST_RANK_PRIMARY,
                                 test_provider_get_type());
  }
  static void TearDownTestSuite() { captures().clear(); }

  LocalVideoTest() {
    captures().clear();
    manager_->Initialize();
    manager_->EnableCameraCapture(true);
    pass(0s);
  }

  void pass(support::Time span) { clock_->pass(span, manager_->session()->context().loop); }

  static std::size_t timesOpened() { return captures().size(); }

  // Lets the camera show a picture, and waits until the local stream has it.
  void showPicture() {
    auto* const source = GST_APP_SRC(captures().back().get());
    // Refused until the device has been opened.
    while (gst_app_src_push_buffer(
               source, gst_buffer_new_allocate(nullptr, kPictureBytes, nullptr)) != GST_FLOW_OK) {
      std::this_thread::yield();
    }
    const auto stream = manager_->GetFrameManager(support::kLocalStream);
    VideoFrame frame;
    do {
      std::this_thread::yield();
      stream->GetFrame(lastId_, frame);
    } while (frame.noUpdate);
    lastId_ = static_cast<std::uint32_t>(frame.frameId);
    capturedAt_ = support::Time(static_cast<support::Time::rep>(frame.engineValue));
  }
  std::uint32_t lastId() const { return lastId_; }
  // Of the last picture.
  support::Time capturedAt() const { return capturedAt_; }

 private:
  const std::shared_ptr<support::ManualClock> clock_ = std::make_shared<support::ManualClock>();
  const std::unique_ptr<support::EngineManager> manager_ = std::make_unique<support::EngineManager>(
      tsl::CreateParams(), clock_, [](support::EngineContext& context) {
        return std::make_unique<WebrtcEngine>(context,
                                              std::make_shared<support::FramePool>(std::size_t{0}));
      });
  std::uint32_t lastId_ = 0;
  support::Time capturedAt_ = {};

 protected:
  support::EngineManager& manager() { return *manager_; }
};

TEST_F(LocalVideoTest, OpensACameraAgainThatHasShownNothingForThreeSeconds) {
  ASSERT_EQ(timesOpened(), 1U);
  showPicture();
  pass(2999ms);
  showPicture();
  pass(2999ms);
  EXPECT_EQ(timesOpened(), 1U);
  pass(1ms);
  EXPECT_EQ(timesOpened(), 2U);
  showPicture();
  EXPECT_EQ(lastId(), 3U);
  pass(3s);
  EXPECT_EQ(timesOpened(), 3U);
}

TEST_F(LocalVideoTest, TellsWhenAPictureWasCaptured) {
  showPicture();
  const support::Time first = capturedAt();
  const support::Time between = support::realClock()->now();
  EXPECT_LT(first, between);
  showPicture();
  EXPECT_GE(capturedAt(), between);
  EXPECT_LE(capturedAt(), support::realClock()->now());
}

TEST_F(LocalVideoTest, WaitsForTheFirstPictureOfACamera) {
  pass(60s);
  EXPECT_EQ(timesOpened(), 1U);
  showPicture();
  pass(3s);
  ASSERT_EQ(timesOpened(), 2U);
  pass(60s);
  EXPECT_EQ(timesOpened(), 2U);
}

TEST_F(LocalVideoTest, OpensNoCameraAgainThatIsNotToCapture) {
  showPicture();
  manager().EnableCameraCapture(false);
  pass(60s);
  EXPECT_EQ(timesOpened(), 1U);
}

TEST_F(LocalVideoTest, LeavesACallAfterWhichTheCameraCannotBeOpened) {
  const auto recorder = std::make_shared<support::NotificationRecorder>();
  manager().RegisterNotifyCallback(recorder);
  tsl::ConnectParams params;
  params.uri = "janus+ws://127.0.0.1:1/?room=r&camera=card";
  manager().ConnectCall(params);
  const BrokenElement broken("videoconvert");
  manager().DisconnectCall();
  pass(0s);
  EXPECT_THAT(recorder->takeLines(),
              testing::IsSupersetOf({"not connected", "disconnect 1 0 the call was left"}));
}

}  // namespace
}  // namespace webrtc
