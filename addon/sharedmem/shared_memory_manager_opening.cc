// SharedMemoryManager, opening side: the widget process finds the segments and reads the frames.

#include <string>
#include <utility>

#include "addon/sharedmem/diagnostic_lines.h"
#include "addon/sharedmem/locked_table.h"
#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_manager.h"

using base::DiagnosticLine;

namespace sharedmem {
namespace {

SharedMemoryInfo existingSegment(std::uint32_t size, const SharedMemoryKey& key) {
  return {.shmName = key.shmName, .semName = key.semName, .size = size};
}

const char* kindName(const StreamKey& key) {
  if (key.first == TSLM_STREAM_LOCAL) return "local";
  return key.first == TSLM_STREAM_REMOTE ? "remote" : "content";
}

}  // namespace

std::shared_ptr<SharedMemoryManager> SharedMemoryManager::CreateSharedMemoryManagerWithKey(
    const SharedMemoryKey& key) {
  const SharedMemoryInfo info = existingSegment(kMainSegmentSize, key);
  DiagnosticLine("CreateSharedMemoryManagerWithKey, size of shared main segment:").dec(info.size);
  return std::make_shared<SharedMemoryManager>(info);
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
    const SharedStreamEntry* const entry = table.entryOf(key);
    if (entry == nullptr) {
      DiagnosticLine("getVideoFrameSource: Unknown stream index!");
      return source;
    }
    if (isValid(*entry)) return source;
  }
  eraseSource(key);
  return nullptr;
}

// The answer for a stream that has no source yet. A failure is stored, so that it is not repeated
// for every frame, until the stream leaves the table or is removed.
SharedMemoryManager::SourcePtr SharedMemoryManager::openVideoFrameSource(const StreamKey& key) {
  SharedMemoryKey names;
  {
    const LockedTable table(*allocator_);
    if (!table.locked()) {
      storeSource(key, nullptr);
      DiagnosticLine("getVideoFrameSource: Shared mem lock failed, something is wrong!");
      return nullptr;
    }
    const SharedStreamEntry* const entry = table.entryOf(key);
    if (entry == nullptr) {
      DiagnosticLine("getVideoFrameSource: Unknown stream index!");
    } else if (!isValid(*entry)) {
      DiagnosticLine("getVideoFrameSource: Shared mem for ")
          .text(kindName(key))
          .text(" stream not initialised, something is wrong!");
      return nullptr;
    } else {
      names = namesIn(*entry);
      DiagnosticLine("getVideoFrameSource: opening video shared memory shm name:")
          .text(names.shmName)
          .text(", sem name:")
          .text(names.semName);
    }
  }
  SourcePtr source;
  if (!names.shmName.empty() && !names.semName.empty()) {
    source = SharedMemoryVideoFrameSource::CreateVideoFrameSource(
        existingSegment(kFrameSegmentSize, names));
  }
  storeSource(key, source);
  return source;
}

bool SharedMemoryManager::holdsVideoFrameSource(const StreamKey& key) {
  return findSource(key).value_or(nullptr) != nullptr;
}

void SharedMemoryManager::removeVideoFrameSource(const StreamKey& key) {
  if (!findSource(key)) return;
  printStream("removeVideoFrameSource:", key);
  eraseSource(key);
}

}  // namespace sharedmem
