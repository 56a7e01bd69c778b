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
  // Null when there is only one layer in this encoding.
  void (*addTemporalLayers)(GstElement* encoder);
};

namespace {

// Bits for a pixel, at 30 frames per second, above which the encoders gain little.
constexpr double kBitsPerPixel = 0.1;
constexpr std::uint32_t kLeastBitsPerSecond = 150'000;

constexpr std::uint32_t kLeastHeight = 90;  // of a layer below the highest

constexpr std::array kTemporalLayers = {0, 2, 1, 2};     // of four pictures
constexpr std::array kDecimators = {4, 2, 1};            // of each temporal layer with those below
constexpr std::array kTemporalShares = {0.4, 0.6, 1.0};  // the same, of the bits
// Of four pictures: none refers to anything but the lowest temporal layer.
constexpr const char* kReferences =
    "<no-ref-golden+no-ref-alt+no-upd-golden+no-upd-alt,"
    "no-ref-golden+no-ref-alt+no-upd-last+no-upd-golden+no-upd-alt+no-upd-entropy,"
    "no-ref-golden+no-ref-alt+no-upd-last+no-upd-golden+no-upd-alt+no-upd-entropy,"
    "no-ref-golden+no-ref-alt+no-upd-last+no-upd-golden+no-upd-alt+no-upd-entropy>";

// The encoder takes some of its settings only in GLib's former arrays.
template <typename Numbers>
void setNumbers(GstElement* element, const char* property, const Numbers& numbers) {
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  GValueArray* const array = g_value_array_new(static_cast<guint>(numbers.size()));
  for (const auto number : numbers) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_INT);
    g_value_set_int(&value, static_cast<gint>(number));
    g_value_array_append(array, &value);
  }
  g_object_set(element, property, array, nullptr);
  g_value_array_free(array);
  G_GNUC_END_IGNORE_DEPRECATIONS
}

void addTemporalLayers(GstElement* encoder) {
  g_object_set(encoder, "temporal-scalability-number-layers", static_cast<gint>(kDecimators.size()),
               "temporal-scalability-periodicity", static_cast<gint>(kTemporalLayers.size()),
               nullptr);
  setNumbers(encoder, "temporal-scalability-layer-id", kTemporalLayers);
  setNumbers(encoder, "temporal-scalability-rate-decimator", kDecimators);
  gst_util_set_object_arg(G_OBJECT(encoder), "temporal-scalability-layer-flags", kReferences);
  gst_util_set_object_arg(G_OBJECT(encoder), "temporal-scalability-layer-sync-flags",
                          "<false,true,true,true>");
}

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
                   if (property<gint>(encoder, "temporal-scalability-number-layers") == 1) return;
                   auto rates = kTemporalShares;
                   for (double& rate : rates) rate *= bitsPerSecond;
                   setNumbers(encoder, "temporal-scalability-target-bitrate", rates);
                 },
             .addTemporalLayers = addTemporalLayers},
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
             .addTemporalLayers = nullptr},
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

std::vector<support::Size> layerSizes(support::Size size) {
  std::vector<support::Size> sizes = {size};
  while (sizes.size() < kMostLayers) {
    const support::Size half = {std::max(2U, sizes.back().width / 4 * 2), sizes.back().height / 2};
    if (half.height < kLeastHeight) break;
    sizes.push_back(half);
  }
  return sizes;
}

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
  return found && found->addTemporalLayers;
}

VideoSender::VideoSender(PeerConnection& connection, GstPad* place, const std::string& encoding,
                         Settings settings)
    : settings_(std::move(settings)), limit_(encodingOf(encoding)->limit) {
  GstElement* const bin = gst_bin_new(nullptr);
  GstElement* const funnel = makeElement("rtpfunnel");
  gst_bin_add(GST_BIN(bin), funnel);
  for (const std::uint32_t ssrc : settings_.ssrcs) {
    GstElement* const layer = addLayer(*encodingOf(encoding), ssrc);
    gst_bin_add(GST_BIN(bin), layer);
    gst_element_link(layer, funnel);
  }
  const ObjectPtr<GstPad> encoded(
      gst_element_get_static_pad(layers_.front().payloader.get(), "sink"));
  handleBuffers(encoded.get(), [count = encodedFrames_] { ++*count; });
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
  if (isLayered()) encoding.addTemporalLayers(layer.encoder.get());
  g_object_set(layer.payloader.get(), "ssrc", layer.ssrc, nullptr);
  layers_.push_back(std::move(layer));
  return bin;
}

void VideoSender::start() {
  base::MutexLock lock(mutex_);
  isStarted_ = true;
}

void VideoSender::setLowerLayers(bool areSent) {
  base::MutexLock lock(mutex_);
  if (!isLayered() || areSent == areLowerSent_) return;
  areLowerSent_ = areSent;
  setFormat();
  if (!areSent) return;
  // What they sent before is too old to be referred to.
  for (std::size_t index = 1; index < layers_.size(); ++index) {
    requestKeyFrame(layers_[index].ssrc);
  }
}

FrameCounts VideoSender::encoded() const {
  base::MutexLock lock(mutex_);
  return {.frames = *encodedFrames_,
          .size = format_.sizes.empty() ? support::Size() : format_.sizes.front()};
}

void VideoSender::send(const std::shared_ptr<support::Frame>& frame, support::FrameRate rate) {
  base::MutexLock lock(mutex_);
  if (!isStarted_) return;
  Format format = {.sizes = isLayered() ? layerSizes(frame->size()) : std::vector{frame->size()},
                   .framesPerSecond = static_cast<std::uint32_t>(rate.perSecond())};
  if (format != format_) {
    format_ = std::move(format);
    setFormat();
    settings_.formatChanged(format_);
  }
  std::shared_ptr<support::Frame> picture = frame;
  for (std::size_t index = 0; index < sentLayers(); ++index) {
    const Layer& layer = layers_[index];
    if (index > 0) picture = layer.scaler->scale(*picture, format_.sizes[index]);
    gst_app_src_push_buffer(GST_APP_SRC(layer.source.get()), bufferOf(picture).release());
  }
}

std::size_t VideoSender::sentLayers() const { return areLowerSent_ ? format_.sizes.size() : 1; }

void VideoSender::setFormat() {
  setRates();
  for (std::size_t index = 0; index < sentLayers(); ++index) {
    const auto [width, height] = format_.sizes[index];
    const CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width",
                                           G_TYPE_INT, static_cast<gint>(width), "height",
                                           G_TYPE_INT, static_cast<gint>(height), "framerate",
                                           GST_TYPE_FRACTION, 30, 1, nullptr));
    gst_app_src_set_caps(GST_APP_SRC(layers_[index].source.get()), caps.get());
  }
}

void VideoSender::setRates() {
  if (format_.sizes.empty()) return;
  const auto wanted = [](support::Size size) {
    return static_cast<double>(support::pixels(size)) * 30 * kBitsPerPixel;
  };
  double sum = 0;
  for (std::size_t index = 0; index < sentLayers(); ++index) sum += wanted(format_.sizes[index]);
  const double least = kLeastBitsPerSecond;
  const double most = std::max<double>(settings_.mostBitsPerSecond, least);
  const double share = std::clamp(sum, least, most) / sum;
  const bool isStrict = settings_.mostBitsPerSecond < sum;
  for (std::size_t index = 0; index < sentLayers(); ++index) {
    limit_(layers_[index].encoder.get(),
           static_cast<std::uint32_t>(wanted(format_.sizes[index]) * share), isStrict);
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
