// Owners of GLib's and GStreamer's objects, and signal handlers that are C++ functions.

#ifndef ENGINE_WEBRTC_GLIB_H_
#define ENGINE_WEBRTC_GLIB_H_

#include <gst/gst.h>
#include <gst/sdp/sdp.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace webrtc {

// Releases what a unique_ptr owns by calling `function`.
template <auto function>
struct ReleasedBy {
  template <typename T>
  void operator()(T* object) const {
    function(object);
  }
};

// One reference to an object of any class derived from GObject.
template <typename T>
using ObjectPtr = std::unique_ptr<T, ReleasedBy<g_object_unref>>;

using BufferPtr = std::unique_ptr<GstBuffer, ReleasedBy<gst_buffer_unref>>;
using BytesPtr = std::unique_ptr<GBytes, ReleasedBy<g_bytes_unref>>;
using CapsPtr = std::unique_ptr<GstCaps, ReleasedBy<gst_caps_unref>>;
using ContextPtr = std::unique_ptr<GMainContext, ReleasedBy<g_main_context_unref>>;
using ErrorPtr = std::unique_ptr<GError, ReleasedBy<g_error_free>>;
using EventPtr = std::unique_ptr<GstEvent, ReleasedBy<gst_event_unref>>;
using MainLoopPtr = std::unique_ptr<GMainLoop, ReleasedBy<g_main_loop_unref>>;
using MessagePtr = std::unique_ptr<GstMessage, ReleasedBy<gst_message_unref>>;
using SamplePtr = std::unique_ptr<GstSample, ReleasedBy<gst_sample_unref>>;
using SdpPtr = std::unique_ptr<GstSDPMessage, ReleasedBy<gst_sdp_message_free>>;
using SourcePtr = std::unique_ptr<GSource, ReleasedBy<g_source_unref>>;
using TextPtr = std::unique_ptr<char, ReleasedBy<g_free>>;

// One more reference to `object`, which somebody else owns.
template <typename T>
ObjectPtr<T> share(T* object) {
  return ObjectPtr<T>(static_cast<T*>(g_object_ref(object)));
}

// The text of an error, which may be missing.
inline std::string textOf(const ErrorPtr& error) { return error ? error->message : "unknown"; }

// The value of a property. A reference that it has is the caller's: T is then a pointer that the
// caller puts into an owner.
template <typename T>
T property(gpointer object, const char* name) {
  T value = {};
  g_object_get(object, name, &value, nullptr);
  return value;
}

// Calls `handler` for each emission of a signal, on the thread that emits, for as long as `object`
// lives. The handler goes with the object, so it must not own it. Its parameters are those of the
// signal without the object. Nothing may be thrown into GLib: an exception drops the emission.
template <typename Result, typename... Parameters>
void connect(gpointer object, const char* signal, std::function<Result(Parameters...)> handler) {
  using Handler = std::function<Result(Parameters...)>;
  constexpr auto call = [](gpointer, Parameters... parameters, gpointer data) -> Result {
    try {
      return (*static_cast<Handler*>(data))(parameters...);
    } catch (const std::exception& error) {
      g_warning("a signal handler failed: %s", error.what());
      return Result();
    }
  };
  Result (*const function)(gpointer, Parameters..., gpointer) = call;
  g_signal_connect_data(
      object, signal, reinterpret_cast<GCallback>(function), new Handler(std::move(handler)),
      [](gpointer data, GClosure*) { delete static_cast<Handler*>(data); }, GConnectFlags(0));
}

// A promise that calls `reply` once, on whatever thread replies. It is interrupted, and the reply
// null, when what it was given to has ended.
inline GstPromise* promise(std::function<void(const GstStructure*)> reply) {
  using Reply = std::function<void(const GstStructure*)>;
  return gst_promise_new_with_change_func(
      [](GstPromise* kept, gpointer data) {
        const bool isReplied = gst_promise_wait(kept) == GST_PROMISE_RESULT_REPLIED;
        try {
          (*static_cast<Reply*>(data))(isReplied ? gst_promise_get_reply(kept) : nullptr);
        } catch (const std::exception& error) {
          g_warning("a promise's reply failed: %s", error.what());
        }
        gst_promise_unref(kept);
      },
      new Reply(std::move(reply)), [](gpointer data) { delete static_cast<Reply*>(data); });
}

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_GLIB_H_
