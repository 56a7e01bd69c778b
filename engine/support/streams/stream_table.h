// The streams that there are.

#ifndef ENGINE_SUPPORT_STREAMS_STREAM_TABLE_H_
#define ENGINE_SUPPORT_STREAMS_STREAM_TABLE_H_

#include <map>
#include <memory>
#include <vector>

#include "base/mutex.h"
#include "engine/support/streams/video_stream.h"

namespace support {

// Finds streams by their keys, and sees to it that the threads of streams that are over end before
// the engine does. Owned by the engine. find() may be called from any thread; the rest belongs to
// the engine's thread, and after that thread's end to the one that ends the engine.
class StreamTable {
 public:
  StreamTable() = default;
  StreamTable(const StreamTable&) = delete;
  StreamTable& operator=(const StreamTable&) = delete;

  // Empty when there is no such stream.
  std::shared_ptr<VideoStream> find(const StreamKey& key) const EXCLUDES(mutex_);
  // There must be no stream of the same key.
  void add(std::shared_ptr<VideoStream> stream) EXCLUDES(mutex_);
  // Ends the stream, without waiting for its receiver.
  void remove(const StreamKey& key) EXCLUDES(mutex_);
  // Ends all streams and waits for their receivers.
  void endAll() EXCLUDES(mutex_);

 private:
  // Forgets the ended streams whose receivers have returned.
  void forgetFinished();

  std::vector<std::shared_ptr<VideoStream>> ending_;  // a receiver may still run

  mutable base::Mutex mutex_;
  std::map<StreamKey, std::shared_ptr<VideoStream>> streams_ GUARDED_BY(mutex_);
};

}  // namespace support

#endif  // ENGINE_SUPPORT_STREAMS_STREAM_TABLE_H_
