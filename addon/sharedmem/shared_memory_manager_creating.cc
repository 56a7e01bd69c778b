// SharedMemoryManager, creating side: the process in which the engine runs makes the segments and
// writes the frames.

#include <pthread.h>

#include <string>
#include <utility>

#include "addon/sharedmem/diagnostic_lines.h"
#include "addon/sharedmem/locked_table.h"
#include "addon/sharedmem/shared_memory_layout.h"
#include "addon/sharedmem/shared_memory_manager.h"
#include "addon/utils/random_name.h"

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

// The first unlock of a created segment opens it to the other process.
void SharedMemoryManager::clearTable() {
  const LockedTable table(*allocator_);
  if (!table.locked()) {
    DiagnosticLine("SharedMemoryManager:Failed to clear shared memory for TesselWrapper");
    return;
  }
  if (table.mapped()) {
    table.clear();
  } else {
    DiagnosticLine("SharedMemoryManager:Failed to get shared memory for clearing");
  }
  DiagnosticLine("SharedMemoryManager: Unlocking now");
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
  return createSource(key, info) && listSegment(key, info);
}

// A failure is stored too: the stream stays refused until disableSharedMemory.
bool SharedMemoryManager::createSource(const StreamKey& key, const SharedMemoryInfo& info) {
  SourcePtr source = SharedMemoryVideoFrameSource::CreateVideoFrameSource(info);
  const bool created = source != nullptr;
  storeSource(key, std::move(source));
  return created;
}

bool SharedMemoryManager::listSegment(const StreamKey& key, const SharedMemoryInfo& info) {
  const LockedTable table(*allocator_);
  if (!table.locked()) {
    storeSource(key, nullptr);
    DiagnosticLine("enableSharedMemory: Shared mem lock failed, something is wrong!");
    return false;
  }
  if (!table.mapped()) return false;
  SharedStreamEntry* const entry = table.entryOf(key);
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
  setEntry(*entry, {.shmName = info.shmName, .semName = info.semName});
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
  SharedStreamEntry* const entry = table.entryOf(key);
  if (entry == nullptr) {
    DiagnosticLine("disableSharedMemory: Unknown stream index!");
    return false;
  }
  clearEntry(*entry);
  eraseSource(key);
  return true;
}

void SharedMemoryManager::NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame,
                                             unsigned int csrc, const StreamKey& key) {
  // The copy keeps the source alive if the stream is removed meanwhile.
  const std::optional<SourcePtr> source = findSource(key);
  if (!source) {
    printStream("NotifyFrameArrived: No mapped video frame shared mem object found for", key);
  } else if (!*source) {
    printStream("NotifyFrameArrived: Frame dropped, no shared memory for", key);
  } else {
    (*source)->storeVideoFrame(frame, csrc);
  }
}

}  // namespace sharedmem
