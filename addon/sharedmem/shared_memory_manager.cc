// SharedMemoryManager: its life, and its map of frame sources. shared_memory_manager_creating.cc
// and shared_memory_manager_opening.cc hold what only one of the two sides does.

#include "addon/sharedmem/shared_memory_manager.h"

#include <utility>

#include "base/diagnostic_line.h"

namespace sharedmem {

SharedMemoryManager::SharedMemoryManager(const SharedMemoryInfo& info)
    : allocator_(std::make_unique<SharedMemoryAllocator>(info)) {
  if (!allocator_->initialised()) {
    base::DiagnosticLine(
        "SharedMemoryManager:Failed to initialise shared memory for TesselWrapper");
  } else if (info.create) {
    clearTable();
  }
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
