#include "engine/webrtc/video_receiver.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/support/streams/stream_keys.h"
#include "engine/webrtc/glib.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {
namespace {

constexpr std::size_t kPictures = 24;
constexpr std::size_t kKeyFrameInterval = 8;

struct Codec {
  const char* encoding;
  const char* elements;  // from raw pictures to packets, several of them for a picture
};

// What is sent, packet by packet.
struct Sent {
  CapsPtr format;
  std::vector<BufferPtr> packets;
};

Sent encode(const Codec& codec) {
  const PipelinePtr pipeline = makePipeline();
  GstElement* const bin =
      makeBin("videotestsrc pattern=ball num-buffers=" + std::to_string(kPictures) +
              " ! video/x-raw,format=I420,width=160,height=128,framerate=30/1 ! " + codec.elements +
              " ! appsink name=sink sync=false");
  gst_bin_add(GST_BIN(pipeline.get()), bin);
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(bin), "sink"));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  Sent sent;
  while (const SamplePtr sample{gst_app_sink_pull_sample(GST_APP_SINK(sink.get()))}) {
    sent.format.reset(gst_caps_ref(gst_sample_get_caps(sample.get())));
    sent.packets.emplace_back(gst_buffer_ref(gst_sample_get_buffer(sample.get())));
  }
  return sent;
}

// The pictures that are shown, by their time, and the requests for key frames.
struct Received {
  std::map<std::uint64_t, std::string> pictures;
  int requests = 0;
};

// A receiver that gets packets, one after the other.
class Reception {
 public:
  Reception(const Codec& codec, const CapsPtr& format, const support::Reception& wanted = {})
      : decoder_(receiver_->makeDecoder(codec.encoding)),
        source_(GST_PAD(gst_object_ref_sink(gst_pad_new("src", GST_PAD_SRC)))) {
    receiver_->setReception(wanted);
    gst_object_ref_sink(decoder_.get());
    gst_pad_set_element_private(source_.get(), &received_);
    gst_pad_set_event_function(source_.get(), &Reception::countRequest);
    const ObjectPtr<GstPad> sink(gst_element_get_static_pad(decoder_.get(), "sink"));
    gst_pad_link(source_.get(), sink.get());
    gst_pad_set_active(source_.get(), TRUE);
    gst_element_set_state(decoder_.get(), GST_STATE_PLAYING);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(source_.get(), gst_event_new_stream_start("video"));
    gst_pad_push_event(source_.get(), gst_event_new_caps(format.get()));
    gst_pad_push_event(source_.get(), gst_event_new_segment(&segment));
  }
  ~Reception() {
    gst_element_set_state(decoder_.get(), GST_STATE_NULL);
    stream_->end();
    stream_->delivery().join();
  }
  Reception(const Reception&) = delete;
  Reception& operator=(const Reception&) = delete;

  void take(const BufferPtr& packet) {
    gst_pad_push(source_.get(), gst_buffer_ref(packet.get()));
    VideoFrame frame;
    stream_->GetFrame(lastId_, frame);
    if (frame.noUpdate) return;
    lastId_ = static_cast<std::uint32_t>(frame.frameId);
    received_.pictures[frame.engineValue] = {
        reinterpret_cast<const char*>(frame.frame->frameBuffer()), frame.frame->frameBufferSize()};
  }
  const Received& received() const { return received_; }

 private:
  static gboolean countRequest(GstPad* pad, GstObject*, GstEvent* raised) {
    const EventPtr event(raised);
    if (gst_video_event_is_force_key_unit(event.get()) != FALSE) {
      ++static_cast<Received*>(gst_pad_get_element_private(pad))->requests;
    }
    return TRUE;
  }

  const std::shared_ptr<support::VideoStream> stream_ = std::make_shared<support::VideoStream>(
      support::remoteStream(0), 5, std::make_shared<support::Log>("", ""));
  const std::shared_ptr<VideoReceiver> receiver_ =
      std::make_shared<VideoReceiver>(stream_, std::make_shared<support::FramePool>(0));
  const ObjectPtr<GstElement> decoder_;
  const ObjectPtr<GstPad> source_;
  Received received_;
  std::uint32_t lastId_ = 0;
};

// What is received of `sent` when the packets from `first` up to `last`, exclusively, are lost.
Received receive(const Codec& codec, const Sent& sent, std::size_t first, std::size_t last) {
  Reception reception(codec, sent.format);
  for (std::size_t number = 0; number < sent.packets.size(); ++number) {
    if (number < first || number >= last) reception.take(sent.packets[number]);
  }
  return reception.received();
}

class VideoReceiverTest : public testing::TestWithParam<Codec> {
 protected:
  static void SetUpTestSuite() { gst_init(nullptr, nullptr); }
};

INSTANTIATE_TEST_SUITE_P(
    Codecs, VideoReceiverTest,
    testing::Values(Codec{"VP8",
                          "vp8enc deadline=1 keyframe-max-dist=8 ! rtpvp8pay mtu=150 "
                          "picture-id-mode=15-bit"},
                    Codec{"H264",
                          "openh264enc gop-size=8 slice-mode=n-slices num-slices=4 ! "
                          "video/x-h264,profile=constrained-baseline ! rtph264pay mtu=150"}),
    [](const auto& codec) { return codec.param.encoding; });

TEST_P(VideoReceiverTest, ShowsEveryPictureThatArrivesWhole) {
  const Sent sent = encode(GetParam());
  const Received received = receive(GetParam(), sent, 0, 0);
  EXPECT_EQ(received.pictures.size(), kPictures);
}

TEST_P(VideoReceiverTest, ShowsNothingBrokenAfterALossAndGoesOnAtAKeyFrame) {
  const Sent sent = encode(GetParam());
  const Received whole = receive(GetParam(), sent, 0, 0);
  ASSERT_EQ(whole.pictures.size(), kPictures);
  const auto lastTime = whole.pictures.rbegin()->first;
  for (const std::size_t lost : {1U, 2U, 3U, 9U}) {
    for (std::size_t first = 0; first + lost < sent.packets.size(); ++first) {
      const Received received = receive(GetParam(), sent, first, first + lost);
      for (const auto& [time, picture] : received.pictures) {
        ASSERT_TRUE(whole.pictures.contains(time));
        ASSERT_TRUE(picture == whole.pictures.at(time))
            << "at " << time << " after " << lost << " lost packets from " << first << " of "
            << sent.packets.size();
      }
      // A loss before the first packet is not noticed, but a key frame is waited for.
      EXPECT_TRUE(first == 0 || received.requests > whole.requests) << first;
      // The next key frames are received whole.
      const bool isEarly = first + lost < sent.packets.size() / 3;
      EXPECT_TRUE(!isEarly || received.pictures.size() >= kPictures - 2 * kKeyFrameInterval);
      EXPECT_TRUE(!isEarly || received.pictures.contains(lastTime)) << first;
    }
  }
}

TEST_P(VideoReceiverTest, ShowsAsManyPicturesAsTheFrameRateAllows) {
  const Sent sent = encode(GetParam());
  const Received whole = receive(GetParam(), sent, 0, 0);
  ASSERT_EQ(whole.pictures.size(), kPictures);
  // Of 30 per second.
  for (const auto& [mostPerSecond, everyNth] :
       std::map<std::uint32_t, std::size_t>{{30, 1}, {15, 2}, {7, 4}, {3, 10}}) {
    Reception reception(GetParam(), sent.format, {.mostPerSecond = mostPerSecond});
    for (const BufferPtr& packet : sent.packets) reception.take(packet);
    std::vector<std::uint64_t> due;
    std::size_t number = 0;
    for (const auto& [time, picture] : whole.pictures) {
      if (number++ % everyNth == 0) due.push_back(time);
    }
    std::vector<std::uint64_t> shown;
    for (const auto& [time, picture] : reception.received().pictures) shown.push_back(time);
    EXPECT_EQ(shown, due) << mostPerSecond;
  }
}

TEST(VideoReceiver, HasNoDecoderForOtherEncodings) {
  gst_init(nullptr, nullptr);
  const auto stream = std::make_shared<support::VideoStream>(
      support::remoteStream(0), 5, std::make_shared<support::Log>("", ""));
  const auto receiver =
      std::make_shared<VideoReceiver>(stream, std::make_shared<support::FramePool>(0));
  EXPECT_EQ(receiver->makeDecoder("VP9"), nullptr);
  EXPECT_EQ(receiver->makeDecoder(""), nullptr);
}

}  // namespace
}  // namespace webrtc
