#include "engine/webrtc/video_sender.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace webrtc {

// How a picture of one encoding is made and described.
struct Encoding {
  const char* name;  // as a session description has it
  const char* format;
  // From raw pictures to packets.
  const char* elements;
  // Tells the encoder how many bits it may make in a second, and whether it is to drop frames to
  // keep that.
  void (*limit)(GstElement* encoder, std::uint32_t bitsPerSecond, bool isStrict);
  bool canBeLayered;
};

namespace {

constexpr const char* kSource =
    "appsrc name=source is-live=true format=time max-buffers=1 leaky-type=downstream ! ";

// One thread and no look-ahead, so that a frame leaves at once; the rate is held within a second. A
// key frame is sent when somebody asks for one.
constexpr std::array kEncodings = {
    Encoding{.name = "VP8",
             .format = "payload=96",
             .elements =
                 "vp8enc name=encoder deadline=1 cpu-used=8 threads=1 lag-in-frames=0 "
                 "end-usage=cbr error-resilient=default keyframe-max-dist=3000 min-quantizer=4 "
                 "max-quantizer=56 buffer-size=1000 buffer-initial-size=500 "
                 "buffer-optimal-size=600 overshoot=15 static-threshold=1 ! "
                 "rtpvp8pay name=payloader pt=96 picture-id-mode=15-bit",
             .limit =
                 [](GstElement* encoder, std::uint32_t bitsPerSecond, bool isStrict) {
                   // Fill level of the encoder's bit buffer, in percent, below which frames are
                   // dropped.
                   constexpr gint kDropThreshold = 30;
                   g_object_set(encoder, "target-bitrate", static_cast<gint>(bitsPerSecond),
                                "dropframe-threshold", isStrict ? kDropThreshold : 0, nullptr);
                 },
             .canBeLayered = true},
    // The profile that every browser decodes. The encoder puts the parameter sets before each key
    // frame. OpenH264 prints "cmInitParaError" when its stream ends, as that of an appsrc does when
    // what follows it has gone: GStreamer then asks without a frame for what is still in it, until
    // that is refused. Nothing is: it gives each picture at once.
    Encoding{.name = "H264",
             .format = "payload=97,packetization-mode=(string)1,profile-level-id=(string)42e01f,"
                       "level-asymmetry-allowed=(string)1",
             .elements = "openh264enc name=encoder usage-type=camera complexity=low multi-thread=1 "
                         "rate-control=bitrate gop-size=3000 scene-change-detection=false ! "
                         "video/x-h264,profile=constrained-baseline ! "
                         "rtph264pay name=payloader pt=97 "
                         "aggregate-mode=zero-latency",
             .limit =
                 [](GstElement* encoder, std::uint32_t bitsPerSecond, bool isStrict) {
                   g_object_set(encoder, "bitrate", bitsPerSecond, "enable-frame-skip",
                                static_cast<gboolean>(isStrict), nullptr);
                 },
             .canBeLayered = false},
};

const Encoding* encodingOf(const std::string& name) {
  const auto* const found = std::find_if(kEncodings.begin(), kEncodings.end(),
                                         [&name](const auto& each) { return name == each.name; });
  return found == kEncodings.end() ? nullptr : found;
}

BufferPtr bufferOf(const std::shared_ptr<support::Frame>& frame) {
  using Kept = Handed<void>;
  const support::Size size = frame->size();
  auto* const pixels = const_cast<std::uint8_t*>(frame->frameBuffer());
  BufferPtr buffer(gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, pixels, frame->bytes(), 0,
                                               frame->bytes(), new Kept([frame] {}),
                                               Kept::destroy));
  // The rows are tightly packed, which GStreamer's own would not be in any size.
  const support::Size chroma = chromaSize(size);
  std::array<gsize, GST_VIDEO_MAX_PLANES> offsets = {
      0, support::pixels(size), support::pixels(size) + support::pixels(chroma), 0};
  std::array<gint, GST_VIDEO_MAX_PLANES> strides = {static_cast<gint>(size.width),
                                                    static_cast<gint>(chroma.width),
                                                    static_cast<gint>(chroma.width), 0};
  gst_buffer_add_video_meta_full(buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_I420,
                                 size.width, size.height, 3, offsets.data(), strides.data());
  GST_BUFFER_PTS(buffer.get()) = static_cast<GstClockTime>(frame->capturedAt.count());
  return buffer;
}

ObjectPtr<GstElement> elementIn(GstElement* bin, const char* name) {
  return ObjectPtr<GstElement>(gst_bin_get_by_name(GST_BIN(bin), name));
}

}  // namespace

std::string VideoSender::formats(std::uint32_t ssrc) {
  std::string all;
  for (const Encoding& encoding : kEncodings) {
    if (!all.empty()) all += ';';
    all += std::string("application/x-rtp,media=video,clock-rate=90000,encoding-name=") +
           encoding.name + ',' + encoding.format + ",rtcp-fb-nack-pli=true,ssrc=(uint)" +
           std::to_string(ssrc);
  }
  return all;
}

bool VideoSender::canEncode(const std::string& encoding) { return encodingOf(encoding) != nullptr; }

bool VideoSender::canLayer(const std::string& encoding) {
  const Encoding* const found = encodingOf(encoding);
  return found && found->canBeLayered;
}

VideoSender::VideoSender(PeerConnection& connection, GstPad* place, const std::string& encoding,
                         Settings settings)
    : settings_(std::move(settings)),
      limit_(encodingOf(encoding)->limit),
      mostBitsPerSecond_(settings_.mostBitsPerSecond) {
  GstElement* const bin = gst_bin_new(nullptr);
  GstElement* const funnel = makeElement("rtpfunnel");
  gst_bin_add(GST_BIN(bin), funnel);
  for (const std::uint32_t ssrc : settings_.ssrcs) {
    GstElement* const layer = addLayer(*encodingOf(encoding), ssrc);
    gst_bin_add(GST_BIN(bin), layer);
    gst_element_link(layer, funnel);
  }
  const ObjectPtr<GstPad> source(gst_element_get_static_pad(funnel, "src"));
  gst_element_add_pad(bin, gst_ghost_pad_new("src", source.get()));
  connection.addSender(bin, place);
}

GstElement* VideoSender::addLayer(const Encoding& encoding, std::uint32_t ssrc) {
  GstElement* const bin = makeBin(std::string(kSource) + encoding.elements);
  Layer layer = {.ssrc = ssrc,
                 .source = elementIn(bin, "source"),
                 .encoder = elementIn(bin, "encoder"),
                 .payloader = elementIn(bin, "payloader"),
                 .scaler = std::make_unique<Scaler>(settings_.pool)};
  g_object_set(layer.payloader.get(), "ssrc", layer.ssrc, nullptr);
  const ObjectPtr<GstPad> encoded(gst_element_get_static_pad(layer.payloader.get(), "sink"));
  handleBuffers(encoded.get(), [count = encoded_, index = layers_.size()] {
    if (index == count->highest) ++count->frames;
  });
  layers_.push_back(std::move(layer));
  return bin;
}

void VideoSender::keepDetails() {
  // Of 63. Text stays readable.
  constexpr gint kCoarsest = 36;
  for (const Layer& layer : layers_) {
    GstElement* const encoder = layer.encoder.get();
    const char* const property =
        g_object_class_find_property(G_OBJECT_GET_CLASS(encoder), "max-quantizer") ? "max-quantizer"
                                                                                   : "qp-max";
    g_object_set(encoder, property, kCoarsest, nullptr);
  }
}

void VideoSender::start() {
  base::MutexLock lock(mutex_);
  isStarted_ = true;
}

void VideoSender::setReceived(const std::optional<Heights>& heights) {
  base::MutexLock lock(mutex_);
  if (heights == received_) return;
  received_ = heights;
  plan();
}

void VideoSender::setMost(std::uint32_t bitsPerSecond) {
  base::MutexLock lock(mutex_);
  if (bitsPerSecond == mostBitsPerSecond_) return;
  mostBitsPerSecond_ = bitsPerSecond;
  plan();
}

std::uint32_t VideoSender::wantedBitsPerSecond() const {
  base::MutexLock lock(mutex_);
  return plan_.wantedBitsPerSecond;
}

std::uint32_t VideoSender::highestSsrc() const {
  base::MutexLock lock(mutex_);
  return layers_[plan_.first].ssrc;
}

FrameCounts VideoSender::encoded() const {
  base::MutexLock lock(mutex_);
  return {.frames = encoded_->frames,
          .size = sizes_.empty() ? support::Size() : sizes_[plan_.first]};
}

void VideoSender::send(const std::shared_ptr<support::Frame>& frame) {
  base::MutexLock lock(mutex_);
  if (!isStarted_) return;
  if (sizes_.empty() || frame->size() != sizes_.front()) {
    sizes_ = isLayered() ? layerSizes(frame->size()) : std::vector{frame->size()};
    plan_ = {};
    plan();
    setFormats();
    settings_.sizesChanged(sizes_);
  }
  std::shared_ptr<support::Frame> picture = frame;
  for (std::size_t index = 0; index <= plan_.last; ++index) {
    const Layer& layer = layers_[index];
    if (index > 0) picture = layer.scaler->scale(*picture, sizes_[index]);
    if (!plan_.isSent(index)) continue;
    gst_app_src_push_buffer(GST_APP_SRC(layer.source.get()), bufferOf(picture).release());
  }
}

void VideoSender::plan() {
  if (sizes_.empty()) return;
  const LayerPlan before =
      std::exchange(plan_, planLayers(sizes_, received_, mostBitsPerSecond_, plan_));
  encoded_->highest = plan_.first;
  for (std::size_t index = plan_.first; index <= plan_.last; ++index) {
    limit_(layers_[index].encoder.get(), plan_.bitsPerSecond[index], plan_.isStrict);
    // What it sent before is too old to be referred to.
    if (!before.isSent(index)) requestKeyFrame(layers_[index].ssrc);
  }
}

void VideoSender::setFormats() {
  for (std::size_t index = 0; index < sizes_.size(); ++index) {
    const auto [width, height] = sizes_[index];
    const CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width",
                                           G_TYPE_INT, static_cast<gint>(width), "height",
                                           G_TYPE_INT, static_cast<gint>(height), "framerate",
                                           GST_TYPE_FRACTION, 30, 1, nullptr));
    gst_app_src_set_caps(GST_APP_SRC(layers_[index].source.get()), caps.get());
  }
}

void VideoSender::requestKeyFrame(std::uint32_t ssrc) const {
  for (const Layer& layer : layers_) {
    if (ssrc != 0 && ssrc != layer.ssrc) continue;
    const ObjectPtr<GstPad> sink(gst_element_get_static_pad(layer.payloader.get(), "sink"));
    gst_pad_push_event(sink.get(),
                       gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
  }
}

}  // namespace webrtc
