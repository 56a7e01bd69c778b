// Owners of GLib's and GStreamer's objects, and signal handlers that are C++ functions.

#ifndef ENGINE_WEBRTC_GLIB_H_
#define ENGINE_WEBRTC_GLIB_H_

#include <gst/gst.h>
#include <gst/sdp/sdp.h>

#include <atomic>
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

// A function that is handed to GLib or GStreamer, which call and delete it on threads of their own,
// one call at a time or several. They order this by locks of theirs that a sanitizer cannot see;
// the atomic says the same where it can.
template <typename Result, typename... Parameters>
class Handed {
 public:
  explicit Handed(std::function<Result(Parameters...)> function) : function_(std::move(function)) {
    order_.store(0, std::memory_order_release);
  }
  ~Handed() { order_.load(std::memory_order_acquire); }
  Handed(const Handed&) = delete;
  Handed& operator=(const Handed&) = delete;

  // For C: `data` is one of these. Nothing may be thrown into GLib: an exception is logged.
  static Result call(gpointer data, Parameters... parameters) {
    auto& handed = *static_cast<Handed*>(data);
    const Turn turn(handed.order_);
    try {
      return handed.function_(parameters...);
    } catch (const std::exception& error) {
      g_warning("a function for GLib failed: %s", error.what());
      return Result();
    }
  }
  static void destroy(gpointer data) { delete static_cast<Handed*>(data); }

 private:
  class Turn {
   public:
    explicit Turn(std::atomic<unsigned>& order) : order_(order) {
      order_.load(std::memory_order_acquire);
    }
    ~Turn() { order_.fetch_add(1, std::memory_order_release); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    std::atomic<unsigned>& order_;
  };

  const std::function<Result(Parameters...)> function_;
  std::atomic<unsigned> order_ = 0;
};

// Runs `task` once on the thread that runs `context`.
inline void runOn(GMainContext* context, std::function<void()> task) {
  using Task = Handed<void>;
  // Not g_main_context_invoke(): before the thread runs, it would run the task on this one.
  const SourcePtr source(g_idle_source_new());
  g_source_set_priority(source.get(), G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source.get(),
      [](gpointer data) -> gboolean {
        Task::call(data);
        return G_SOURCE_REMOVE;
      },
      new Task(std::move(task)), Task::destroy);
  g_source_attach(source.get(), context);
}

// Calls `handler` for each emission of a signal, on the thread that emits, for as long as `object`
// lives. The handler goes with the object, so it must not own it. Its parameters are those of the
// signal without the object.
template <typename Result, typename... Parameters>
void connect(gpointer object, const char* signal, std::function<Result(Parameters...)> handler) {
  using Handler = Handed<Result, Parameters...>;
  Result (*const function)(gpointer, Parameters..., gpointer) =
      [](gpointer, Parameters... parameters, gpointer data) -> Result {
    return Handler::call(data, parameters...);
  };
  g_signal_connect_data(
      object, signal, reinterpret_cast<GCallback>(function), new Handler(std::move(handler)),
      [](gpointer data, GClosure*) { Handler::destroy(data); }, GConnectFlags(0));
}

// A promise that calls `reply` once, on whatever thread replies. It is interrupted, and the reply
// null, when what it was given to has ended.
inline GstPromise* promise(std::function<void(const GstStructure*)> reply) {
  using Reply = Handed<void, const GstStructure*>;
  return gst_promise_new_with_change_func(
      [](GstPromise* kept, gpointer data) {
        const bool isReplied = gst_promise_wait(kept) == GST_PROMISE_RESULT_REPLIED;
        Reply::call(data, isReplied ? gst_promise_get_reply(kept) : nullptr);
        gst_promise_unref(kept);
      },
      new Reply(std::move(reply)), Reply::destroy);
}

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_GLIB_H_
