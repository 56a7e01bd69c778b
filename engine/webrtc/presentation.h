// What the local participant presents.

#ifndef ENGINE_WEBRTC_PRESENTATION_H_
#define ENGINE_WEBRTC_PRESENTATION_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "engine/support/engine.h"
#include "engine/support/streams/video_stream.h"
#include "engine/webrtc/call_statistics.h"
#include "engine/webrtc/inbox.h"
#include "engine/webrtc/janus_session.h"
#include "engine/webrtc/peer_connection.h"
#include "engine/webrtc/publisher.h"
#include "engine/webrtc/screen_capture.h"
#include "tesselclient/records.h"

namespace webrtc {

// Captures from the screen, shows that as the content stream and sends it to the content's room.
// Owned by the content's room; belongs to the engine's thread, except for what the captures'
// threads do.
class Presentation {
 public:
  struct Settings {
    Json joinRequest;
    std::string name;
    std::string guid;
    Json presenter;  // we, in the meeting's room
    std::uint32_t mostBitsPerSecond = 0;
  };

  // Each may delete the presentation.
  struct Handlers {
    // Also after another source was chosen.
    std::function<void()> started;
    // The source that was chosen cannot be captured; the one before it goes on.
    std::function<void()> notChanged;
    // Nothing can be captured, or sent, or not any more.
    std::function<void()> ended;
  };

  Presentation(support::EngineContext& context, std::shared_ptr<support::FramePool> pool,
               JanusSession& session, const IceOptions& ice, Settings settings,
               const tsl::ContentShareParams& params, Handlers handlers);
  // Notified, if the stream was.
  ~Presentation();
  Presentation(const Presentation&) = delete;
  Presentation& operator=(const Presentation&) = delete;

  // Captures something else. Not before the last outcome was told.
  void change(const tsl::ContentShareParams& params);
  bool isStarted() const { return isStarted_; }
  // An outcome has not been told yet.
  bool isPending() const { return !isStarted_ || next_; }
  // What was sent in a window of this length, which ends now.
  Traffic closeWindow(support::Time length);

 private:
  void capture(const tsl::ContentShareParams& params);
  // On a thread of a capture's.
  void show(std::uint64_t capture, const std::shared_ptr<support::Frame>& frame) EXCLUDES(mutex_);
  // The newest capture has given its first frame.
  void captured();
  void failed(std::uint64_t capture, const std::string& reason);
  void attach();
  void publish();
  void sent();
  void end(const std::string& reason);

  support::EngineContext& context_;
  const std::shared_ptr<support::FramePool> pool_;
  JanusSession& session_;
  const IceOptions& ice_;
  const Settings settings_;
  const Handlers handlers_;
  const std::shared_ptr<support::VideoStream> stream_;
  bool isAdded_ = false;  // the application was notified of the stream
  bool isStarted_ = false;
  std::uint64_t lastCapture_ = 0;
  std::uint64_t capturing_ = 0;  // the number of the capture that is shown
  support::Timer timer_;
  Inbox inbox_;
  std::optional<JanusHandle> handle_;
  std::optional<Publisher> publisher_;

  base::Mutex mutex_;
  std::uint64_t shown_ GUARDED_BY(mutex_) = 0;  // the capture whose frames are shown
  std::uint64_t lastId_ GUARDED_BY(mutex_) = 0;
  std::shared_ptr<VideoSender> sender_ GUARDED_BY(mutex_);

  // Last: their threads use the rest.
  std::unique_ptr<ScreenCapture> capture_;  // that is shown
  std::unique_ptr<ScreenCapture> next_;     // that has given nothing yet
};

}  // namespace webrtc

#endif  // ENGINE_WEBRTC_PRESENTATION_H_
