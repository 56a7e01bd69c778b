// Video streams with the senders that feed them.

#ifndef ENGINE_EMBEDDED_STREAMS_SENT_STREAM_H_
#define ENGINE_EMBEDDED_STREAMS_SENT_STREAM_H_

#include <cstdint>
#include <memory>

#include "engine/embedded/streams/lossy_link.h"
#include "engine/embedded/streams/sender.h"
#include "engine/support/log.h"
#include "engine/support/notifier.h"
#include "engine/support/streams/frame_pool.h"
#include "engine/support/streams/stream_table.h"
#include "engine/support/streams/video_stream.h"
#include "engine/support/task_loop.h"

namespace embedded {

// A stream with its sender, its place in the table of streams and its notifications. Owned by the
// participant or the content that it shows; belongs to the engine's thread.
class SentStream {
 public:
  SentStream(support::StreamTable& table, support::Notifier& notifier,
             std::shared_ptr<support::VideoStream> stream, std::unique_ptr<Sender> sender);
  SentStream(const SentStream&) = delete;
  SentStream& operator=(const SentStream&) = delete;

  std::uint32_t csrc() const { return stream_->csrc(); }
  Sender& sender() { return *sender_; }
  TrafficMeter& meter() { return sender_->meter(); }

  // While the stream is in the table the application finds its frame manager.
  void addToTable() { table_.add(stream_); }
  // Ends the stream.
  void removeFromTable();

  void notifyAdded() { notify(&INotifyCallback::NotifyStreamAdded); }
  void notifyUpdated() { notify(&INotifyCallback::NotifyStreamUpdated); }
  void notifyRemoved() { notify(&INotifyCallback::NotifyStreamRemoved); }

 private:
  void notify(void (INotifyCallback::*operation)(StreamKey, unsigned)) {
    notifier_.notify(operation, stream_->key(), stream_->csrc());
  }

  support::StreamTable& table_;
  support::Notifier& notifier_;
  const std::shared_ptr<support::VideoStream> stream_;
  const std::unique_ptr<Sender> sender_;
};

// Makes the streams of an engine. Owned by the engine; belongs to its thread.
class StreamMaker {
 public:
  StreamMaker(support::TaskLoop& loop, support::StreamTable& table, support::Notifier& notifier,
              std::shared_ptr<const support::Log> log, std::shared_ptr<support::FramePool> pool);

  std::unique_ptr<SentStream> make(const StreamKey& key, std::uint32_t csrc, LossyLink link,
                                   Sender::Level level) const;

 private:
  support::TaskLoop& loop_;
  support::StreamTable& table_;
  support::Notifier& notifier_;
  const std::shared_ptr<const support::Log> log_;
  const std::shared_ptr<support::FramePool> pool_;
};

}  // namespace embedded

#endif  // ENGINE_EMBEDDED_STREAMS_SENT_STREAM_H_
