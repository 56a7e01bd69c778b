#include "engine/support/streams/stream_table.h"

#include <utility>

namespace support {

std::shared_ptr<VideoStream> StreamTable::find(const StreamKey& key) const {
  base::MutexLock lock(mutex_);
  const auto found = streams_.find(key);
  return found == streams_.end() ? nullptr : found->second;
}

void StreamTable::add(std::shared_ptr<VideoStream> stream) {
  const StreamKey key = stream->key();
  base::MutexLock lock(mutex_);
  streams_.emplace(key, std::move(stream));
}

void StreamTable::remove(const StreamKey& key) {
  forgetFinished();
  std::shared_ptr<VideoStream> stream;
  {
    base::MutexLock lock(mutex_);
    const auto found = streams_.find(key);
    if (found == streams_.end()) return;
    stream = std::move(found->second);
    streams_.erase(found);
  }
  stream->end();
  ending_.push_back(std::move(stream));
}

void StreamTable::endAll() {
  std::map<StreamKey, std::shared_ptr<VideoStream>> streams;
  {
    base::MutexLock lock(mutex_);
    streams.swap(streams_);
  }
  for (auto& [key, stream] : streams) {
    stream->end();
    ending_.push_back(std::move(stream));
  }
  for (const auto& stream : ending_) stream->delivery().join();
  ending_.clear();
}

void StreamTable::forgetFinished() {
  std::erase_if(ending_, [](const auto& stream) {
    if (!stream->delivery().isFinished()) return false;
    stream->delivery().join();
    return true;
  });
}

}  // namespace support
