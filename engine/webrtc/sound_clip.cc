#include "engine/webrtc/sound_clip.h"

#include <fcntl.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "engine/support/file_descriptor.h"
#include "engine/support/pictures/y4m_clip.h"
#include "engine/webrtc/pipeline.h"

namespace webrtc {
namespace {

using support::ClipError;

constexpr std::size_t kSamplesPerSecond = 48'000;
constexpr std::size_t kMostSamples = 600 * kSamplesPerSecond;
// Between two looks for errors, and for the next samples.
constexpr GstClockTime kPatience = 20 * GST_MSECOND;
constexpr GstClockTime kLongestReading = 10 * GST_SECOND;
// Of 10 ms.
constexpr std::size_t kChunk = kSamplesPerSecond / 100;

support::FileDescriptor openFile(const std::string& path) {
  // Not blocking, so that a pipe of that name cannot stop the engine.
  auto file = support::FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
  if (!file.isOpen()) {
    throw ClipError(ClipError::Kind::kUnreadable, std::string("the clip cannot be opened: ") +
                                                      std::generic_category().message(errno));
  }
  struct stat status = {};
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw ClipError(ClipError::Kind::kUnreadable, "the clip is not a file");
  }
  return file;
}

[[noreturn]] void refuse(const std::string& reason) {
  throw ClipError(ClipError::Kind::kUnsupported, reason);
}

[[noreturn]] void refuseLength() { refuse("the clip is longer than ten minutes"); }

// By what its header tells, before all of it is read.
bool isTooLong(GstElement* sink) {
  gint64 duration = 0;
  return gst_element_query_duration(sink, GST_FORMAT_TIME, &duration) != FALSE &&
         static_cast<GstClockTime>(duration) > kMostSamples / kSamplesPerSecond * GST_SECOND;
}

void append(GstSample* sample, std::vector<std::int16_t>& samples) {
  GstBuffer* const buffer = gst_sample_get_buffer(sample);
  const std::size_t count = gst_buffer_get_size(buffer) / sizeof(std::int16_t);
  if (samples.size() + count > kMostSamples) refuseLength();
  const std::size_t before = samples.size();
  samples.resize(before + count);
  gst_buffer_extract(buffer, 0, samples.data() + before, count * sizeof(std::int16_t));
}

// Plays one clip into an appsrc. Owned by the element; used on its thread alone.
class Player {
 public:
  explicit Player(std::shared_ptr<const SoundClip> clip) : clip_(std::move(clip)) {}

  void push(GstAppSrc* source) {
    // A pipeline's time is that of the system's clock.
    if (!GST_CLOCK_TIME_IS_VALID(start_)) start_ = gst_util_get_timestamp();
    const auto& samples = clip_->samples();
    const std::size_t position = played_ % samples.size();
    const std::size_t count = std::min(kChunk, samples.size() - position);
    using Kept = std::shared_ptr<const SoundClip>;
    const std::size_t bytes = count * sizeof(std::int16_t);
    GstBuffer* const buffer = gst_buffer_new_wrapped_full(
        GST_MEMORY_FLAG_READONLY, const_cast<std::int16_t*>(samples.data() + position), bytes, 0,
        bytes, new Kept(clip_), [](gpointer kept) { delete static_cast<Kept*>(kept); });
    GST_BUFFER_PTS(buffer) = start_ + timeOf(played_);
    GST_BUFFER_DURATION(buffer) = timeOf(count);
    played_ += count;
    gst_app_src_push_buffer(source, buffer);
  }

 private:
  static GstClockTime timeOf(std::uint64_t samples) {
    return gst_util_uint64_scale_int(samples, GST_SECOND, static_cast<gint>(kSamplesPerSecond));
  }

  const std::shared_ptr<const SoundClip> clip_;
  GstClockTime start_ = GST_CLOCK_TIME_NONE;
  std::uint64_t played_ = 0;
};

}  // namespace

SoundClip::SoundClip(const std::string& path) {
  const support::FileDescriptor file = openFile(path);
  const PipelinePtr pipeline = makePipeline();
  // By its descriptor: the path may lead to something else by now.
  GstElement* const decoder =
      makeBin("filesrc location=/proc/self/fd/" + std::to_string(file.get()) +
              " ! wavparse ignore-length=false ! audioconvert ! audioresample ! " + kVoiceFormat +
              " ! appsink name=sink sync=false enable-last-sample=false");
  gst_bin_add(GST_BIN(pipeline.get()), decoder);
  const ObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(decoder), "sink"));
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const ObjectPtr<GstBus> bus(gst_element_get_bus(pipeline.get()));
  GstClockTime waitsSince = gst_util_get_timestamp();
  bool isEnd = false;
  while (!isEnd) {
    // The end comes after what is wrong.
    isEnd = gst_app_sink_is_eos(GST_APP_SINK(sink.get())) != FALSE;
    const MessagePtr error(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR));
    if (error) refuse("the clip is no WAV file that can be played: " + errorText(error.get()));
    const SamplePtr sample(gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), kPatience));
    if (sample) {
      if (samples_.empty() && isTooLong(sink.get())) refuseLength();
      append(sample.get(), samples_);
      waitsSince = gst_util_get_timestamp();
    }
    if (gst_util_get_timestamp() - waitsSince > kLongestReading) {
      refuse("the clip cannot be read in time");
    }
  }
  if (samples_.empty()) refuse("the clip has no sound");
}

GstElement* makeLoop(std::shared_ptr<const SoundClip> clip) {
  GstElement* const source = makeElement("appsrc");
  const CapsPtr caps(gst_caps_from_string(kVoiceFormat));
  g_object_set(source, "caps", caps.get(), "format", GST_FORMAT_TIME, "max-bytes",
               static_cast<guint64>(4 * kChunk * sizeof(std::int16_t)), nullptr);
  using NeedData = Handed<void, GstAppSrc*>;
  auto* const needData = new NeedData([player = std::make_shared<Player>(std::move(clip))](
                                          GstAppSrc* element) { player->push(element); });
  GstAppSrcCallbacks callbacks = {};
  callbacks.need_data = [](GstAppSrc* element, guint, gpointer data) {
    NeedData::call(data, element);
  };
  gst_app_src_set_callbacks(GST_APP_SRC(source), &callbacks, needData, NeedData::destroy);
  return source;
}

}  // namespace webrtc
