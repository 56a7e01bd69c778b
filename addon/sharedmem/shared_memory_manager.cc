#include "addon/sharedmem/shared_memory_manager.h"

#include <pthread.h>

#include <cstring>
#include <string>
#include <utility>

#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/utils/random_name.h"
#include "base/diagnostic_line.h"

using base::DiagnosticLine;

namespace sharedmem {

namespace {

SharedMemoryInfo freshSegment(std::uint32_t size, const std::string& nameSuffix) {
  SharedMemoryInfo info;
  info.semName = Utils::gen_random("SEM", 20) + nameSuffix;
  info.shmName = Utils::gen_random("SHM", 25) + nameSuffix;
  info.size = size;
  info.create = true;
  info.owner = true;
  return info;
}

SharedMemoryInfo existingSegment(std::uint32_t size, std::string shmName, std::string semName) {
  return {.shmName = std::move(shmName), .semName = std::move(semName), .size = size};
}

// None for a kind, or a remote index, that the main segment has no place for.
std::optional<std::size_t> entryIndexOf(const StreamKey& key) {
  switch (key.first) {
    case TSLM_STREAM_LOCAL:
      return kLocalStreamEntry;
    case TSLM_STREAM_CONTENT:
      return kContentStreamEntry;
    case TSLM_STREAM_REMOTE:
      if (key.second < 0 || key.second >= kRemoteStreams) return std::nullopt;
      return kFirstRemoteStreamEntry + static_cast<std::size_t>(key.second);
  }
  return std::nullopt;
}

bool isRemoteOutsideTable(const StreamKey& key) {
  return key.first == TSLM_STREAM_REMOTE && !entryIndexOf(key);
}

const char* kindName(const StreamKey& key) {
  if (key.first == TSLM_STREAM_LOCAL) return "local";
  return key.first == TSLM_STREAM_REMOTE ? "remote" : "content";
}

template <std::size_t size>
void writeName(char (&field)[size], const std::string& name) {
  field[name.copy(field, size - 1)] = '\0';
}

// Another process may be writing: a name may lack its end, and is copied before it is looked at.
template <std::size_t size>
std::string readName(const char (&field)[size]) {
  char copy[size];
  std::memcpy(copy, field, size);
  return {copy, strnlen(copy, size)};
}

// The main segment's table, locked for a scope.
class LockedTable {
 public:
  explicit LockedTable(SharedMemoryAllocator& allocator)
      : allocator_(allocator), locked_(allocator.lockDataAccess()) {
    if (locked_) entries_ = static_cast<SharedStreamEntry*>(allocator_.getDataPtr());
  }
  ~LockedTable() {
    if (locked_) allocator_.unlockDataAccess();
  }
  LockedTable(const LockedTable&) = delete;
  LockedTable& operator=(const LockedTable&) = delete;

  bool locked() const { return locked_; }
  bool mapped() const { return entries_ != nullptr; }
  // Null for a stream that has no entry.
  SharedStreamEntry* entryOf(const StreamKey& key) const {
    const auto index = entryIndexOf(key);
    return mapped() && index ? entries_ + *index : nullptr;
  }

 private:
  SharedMemoryAllocator& allocator_;
  const bool locked_;
  SharedStreamEntry* entries_ = nullptr;
};

}  // namespace

std::shared_ptr<SharedMemoryManager> SharedMemoryManager::CreateSharedMemoryManager() {
  const SharedMemoryInfo info = freshSegment(kMainSegmentSize, "");
  DiagnosticLine("CreateSharedMemoryManager: Creating shared mem with name:")
      .text(info.shmName)
      .text(", sem name:")
      .text(info.semName)
      .text(", size:")
      .dec(info.size)
      .text("thread id:")
      .dec(pthread_self());
  return std::make_shared<SharedMemoryManager>(info);
}

std::shared_ptr<SharedMemoryManager> SharedMemoryManager::CreateSharedMemoryManagerWithKey(
    const SharedMemoryKey& key) {
  const SharedMemoryInfo info = existingSegment(kMainSegmentSize, key.shmName, key.semName);
  DiagnosticLine("CreateSharedMemoryManagerWithKey, size of shared main segment:").dec(info.size);
  return std::make_shared<SharedMemoryManager>(info);
}

SharedMemoryManager::SharedMemoryManager(const SharedMemoryInfo& info)
    : allocator_(std::make_unique<SharedMemoryAllocator>(info)) {
  if (!allocator_->initialised()) {
    DiagnosticLine("SharedMemoryManager:Failed to initialise shared memory for TesselWrapper");
  } else if (info.create) {
    clearTable();
  }
}

// The first unlock of a created segment is what lets the other process in.
void SharedMemoryManager::clearTable() {
  if (!allocator_->lockDataAccess()) {
    DiagnosticLine("SharedMemoryManager:Failed to clear shared memory for TesselWrapper");
    return;
  }
  if (void* table = allocator_->getDataPtr()) {
    std::memset(table, 0, kMainSegmentSize);
  } else {
    DiagnosticLine("SharedMemoryManager:Failed to get shared memory for clearing");
  }
  DiagnosticLine("SharedMemoryManager: Unlocking now");
  allocator_->unlockDataAccess();
}

void SharedMemoryManager::close() {
  std::map<StreamKey, SourcePtr> closed;
  {
    base::MutexLock lock(sourcesMutex_);
    closed.swap(sources_);
  }
  closed.clear();
  allocator_.reset();
}

void SharedMemoryManager::NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame,
                                             unsigned int csrc, const StreamKey& key) {
  // The copy keeps the source alive if the stream is removed meanwhile.
  const std::optional<SourcePtr> source = findSource(key);
  if (!source) {
    DiagnosticLine(
        "NotifyFrameArrived: No mapped video frame shared mem object found for StreamKey:")
        .integer(key.first)
        .text(", index:")
        .integer(key.second);
    return;
  }
  if (!*source) {
    DiagnosticLine("NotifyFrameArrived: Frame dropped, no shared memory for StreamKey:")
        .integer(key.first)
        .text(", index:")
        .integer(key.second);
    return;
  }
  (*source)->storeVideoFrame(frame, csrc);
}

bool SharedMemoryManager::enableSharedMemory(const StreamKey& key) {
  if (isRemoteOutsideTable(key)) {
    DiagnosticLine("enableSharedMemory: Unknown stream index!");
    return false;
  }
  if (findSource(key)) {
    DiagnosticLine("enableSharedMemory: Already allocated, something is wrong!");
    return false;
  }
  const SharedMemoryInfo info =
      freshSegment(kFrameSegmentSize, std::to_string(key.first) + std::to_string(key.second));
  DiagnosticLine("enableSharedMemory: Creating shared video mem with SHMname:")
      .text(info.shmName)
      .text(", SEMname:")
      .text(info.semName);
  {
    SourcePtr source = SharedMemoryVideoFrameSource::CreateVideoFrameSource(info);
    const bool created = source != nullptr;
    storeSource(key, std::move(source));
    if (!created) return false;
  }

  const LockedTable table(*allocator_);
  if (!table.locked()) {
    storeSource(key, nullptr);
    DiagnosticLine("enableSharedMemory: Shared mem lock failed, something is wrong!");
    return false;
  }
  if (!table.mapped()) return false;
  SharedStreamEntry* entry = table.entryOf(key);
  if (entry == nullptr) {
    DiagnosticLine("enableSharedMemory: Unknown stream index!");
    return false;
  }
  if (key.first == TSLM_STREAM_LOCAL) {
    DiagnosticLine("enableSharedMemory: Local stream initialised, with shm mem name:")
        .text(info.shmName)
        .text(", sem name:")
        .text(info.semName);
  }
  entry->valid = 1;
  writeName(entry->shmName, info.shmName);
  writeName(entry->semName, info.semName);
  return true;
}

bool SharedMemoryManager::disableSharedMemory(const StreamKey& key) {
  if (isRemoteOutsideTable(key)) {
    DiagnosticLine("disableSharedMemory: Unknown stream index!");
    return false;
  }
  if (!findSource(key)) {
    DiagnosticLine("disableSharedMemory: Not allocated, something is wrong!");
    return false;
  }
  const LockedTable table(*allocator_);
  if (!table.locked()) {
    storeSource(key, nullptr);
    DiagnosticLine("disableSharedMemory: Shared mem lock failed, something is wrong!");
    return false;
  }
  SharedStreamEntry* entry = table.entryOf(key);
  if (entry == nullptr) {
    DiagnosticLine("disableSharedMemory: Unknown stream index!");
    return false;
  }
  entry->valid = 0;
  entry->shmName[0] = '\0';
  entry->semName[0] = '\0';
  eraseSource(key);
  return true;
}

SharedMemoryManager::SourcePtr SharedMemoryManager::getVideoFrameSource(const StreamKey& key) {
  if (isRemoteOutsideTable(key)) {
    DiagnosticLine("getVideoFrameSource: Unknown stream index!");
    return nullptr;
  }
  const std::optional<SourcePtr> known = findSource(key);
  return known ? confirmVideoFrameSource(key, *known) : openVideoFrameSource(key);
}

// The answer for a stream that has a source: that source, unless the writer has gone meanwhile.
SharedMemoryManager::SourcePtr SharedMemoryManager::confirmVideoFrameSource(
    const StreamKey& key, const SourcePtr& source) {
  {
    const LockedTable table(*allocator_);
    if (!table.locked()) {
      DiagnosticLine("getVideoFrameSource: Shared mem lock failed, something is wrong!");
      return nullptr;
    }
    const SharedStreamEntry* entry = table.entryOf(key);
    if (entry == nullptr) {
      DiagnosticLine("getVideoFrameSource: Unknown stream index!");
      return source;
    }
    if (readOnce(entry->valid) != 0) return source;
  }
  eraseSource(key);
  return nullptr;
}

// The answer for a stream that has no source yet. A failure is remembered, so that it is not tried
// anew for every frame, until the stream leaves the list or is removed.
SharedMemoryManager::SourcePtr SharedMemoryManager::openVideoFrameSource(const StreamKey& key) {
  SharedMemoryInfo info;
  {
    const LockedTable table(*allocator_);
    if (!table.locked()) {
      storeSource(key, nullptr);
      DiagnosticLine("getVideoFrameSource: Shared mem lock failed, something is wrong!");
      return nullptr;
    }
    const SharedStreamEntry* entry = table.entryOf(key);
    if (entry == nullptr) {
      DiagnosticLine("getVideoFrameSource: Unknown stream index!");
    } else if (readOnce(entry->valid) == 0) {
      DiagnosticLine("getVideoFrameSource: Shared mem for ")
          .text(kindName(key))
          .text(" stream not initialised, something is wrong!");
      return nullptr;
    } else {
      info = existingSegment(kFrameSegmentSize, readName(entry->shmName), readName(entry->semName));
      DiagnosticLine("getVideoFrameSource: opening video shared memory shm name:")
          .text(info.shmName)
          .text(", sem name:")
          .text(info.semName);
    }
  }
  SourcePtr source;
  if (!info.shmName.empty() && !info.semName.empty()) {
    source = SharedMemoryVideoFrameSource::CreateVideoFrameSource(info);
  }
  storeSource(key, source);
  return source;
}

bool SharedMemoryManager::holdsVideoFrameSource(const StreamKey& key) {
  return findSource(key).value_or(nullptr) != nullptr;
}

void SharedMemoryManager::removeVideoFrameSource(const StreamKey& key) {
  if (!findSource(key)) return;
  DiagnosticLine("removeVideoFrameSource: StreamKey:")
      .integer(key.first)
      .text(", index:")
      .integer(key.second);
  eraseSource(key);
}

std::optional<SharedMemoryManager::SourcePtr> SharedMemoryManager::findSource(
    const StreamKey& key) {
  base::MutexLock lock(sourcesMutex_);
  const auto found = sources_.find(key);
  if (found == sources_.end()) return std::nullopt;
  return found->second;
}

void SharedMemoryManager::storeSource(const StreamKey& key, SourcePtr source) {
  base::MutexLock lock(sourcesMutex_);
  sources_[key].swap(source);
}

void SharedMemoryManager::eraseSource(const StreamKey& key) {
  std::map<StreamKey, SourcePtr>::node_type erased;
  base::MutexLock lock(sourcesMutex_);
  erased = sources_.extract(key);
}

}  // namespace sharedmem
