// The addon's layer over the engine's per-stream frame managers.

#ifndef ADDON_FRAMES_STREAM_MANAGER_H_
#define ADDON_FRAMES_STREAM_MANAGER_H_

#include <cstdint>
#include <map>
#include <memory>

#include "tesselclient/tslm_manager.h"
#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

namespace frames {

// Hands out the frames of every stream on request, remembers the last fresh one of each, switches
// capture, and attaches receivers of pushed frames. A frame is never copied: the record holds plane
// pointers into the engine's frame and a share of it.
//
// One per engine, shared by the TesselWrapper and its event handler; JavaScript thread only. The
// frame manager of a stream is fetched from the engine for each operation and not kept.
class StreamManager {
 public:
  explicit StreamManager(std::shared_ptr<TSLM::TSLMManager> engine);

  // Streams need no preparation: these do nothing.
  void streamAdded(StreamKey) {}
  void streamRemoved(StreamKey) {}

  // Without a frame manager these do nothing.
  void enableFrameCapture(const StreamKey& key);
  void disableFrameCapture(const StreamKey& key);
  void releaseFrame(const StreamKey& key, std::int64_t frameId);

  // Asks the engine for a frame newer than `frameId`, of which the low 32 bits count. A fresh frame
  // (neither noUpdate nor clearFrame) is retained, and with it its pixels, until the next fresh one
  // of the stream. Without a frame manager the answer is noUpdate and clearFrame.
  void getFrame(const StreamKey& key, std::int64_t frameId, VideoFrame& frame);

  // The retained frame; noUpdate and clearFrame when there is none.
  void getLastFrame(const StreamKey& key, VideoFrame& frame) const;

  // Attach and detach the receiver of a stream's pushed frames. Without a frame manager: one
  // diagnostic line and false.
  bool registerFrameReciever(const StreamKey& key, std::shared_ptr<IFrameRecieveCallback> receiver);
  bool unregisterFrameReciever(const StreamKey& key);

 private:
  bool setFrameReceiver(const char* operation, const StreamKey& key,
                        std::shared_ptr<IFrameRecieveCallback> receiver);

  const std::shared_ptr<TSLM::TSLMManager> engine_;
  std::map<StreamKey, VideoFrame> lastFrames_;
};

}  // namespace frames

#endif  // ADDON_FRAMES_STREAM_MANAGER_H_
