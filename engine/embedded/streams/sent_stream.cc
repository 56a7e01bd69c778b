#include "engine/embedded/streams/sent_stream.h"

#include <utility>

namespace embedded {

SentStream::SentStream(support::StreamTable& table, support::Notifier& notifier,
                       std::shared_ptr<support::VideoStream> stream, std::unique_ptr<Sender> sender)
    : table_(table), notifier_(notifier), stream_(std::move(stream)), sender_(std::move(sender)) {}

void SentStream::removeFromTable() {
  sender_->stop();
  table_.remove(stream_->key());
}

StreamMaker::StreamMaker(support::TaskLoop& loop, support::StreamTable& table,
                         support::Notifier& notifier, std::shared_ptr<const support::Log> log,
                         std::shared_ptr<support::FramePool> pool)
    : loop_(loop),
      table_(table),
      notifier_(notifier),
      log_(std::move(log)),
      pool_(std::move(pool)) {}

std::unique_ptr<SentStream> StreamMaker::make(const StreamKey& key, std::uint32_t csrc,
                                              LossyLink link, Sender::Level level) const {
  auto stream = std::make_shared<support::VideoStream>(key, csrc, log_);
  auto sender = std::make_unique<Sender>(loop_, pool_, stream, link, std::move(level));
  return std::make_unique<SentStream>(table_, notifier_, std::move(stream), std::move(sender));
}

}  // namespace embedded
