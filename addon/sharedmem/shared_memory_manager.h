// Which streams are shared, and where.

#ifndef ADDON_SHAREDMEM_SHARED_MEMORY_MANAGER_H_
#define ADDON_SHAREDMEM_SHARED_MEMORY_MANAGER_H_

#include <map>
#include <memory>
#include <optional>

#include "addon/sharedmem/shared_memory_allocator.h"
#include "addon/sharedmem/shared_memory_info.h"
#include "addon/sharedmem/shared_memory_video_frame_source.h"
#include "base/mutex.h"
#include "tesselclient/types.h"
#include "tesselclient/video_frame.h"

namespace sharedmem {

// Ties frame segments to streams and tells the other process where they are. Each manager owns one
// main segment, a table that maps a stream to the names of its frame segment, and the frame sources
// that it has created (main process) or opened (widget process).
//
// Held through shared ownership: by the wrapper or proxy that made it and, in the main process, by
// the engine for every stream that it receives. NotifyFrameArrived runs on the engine's frame
// threads, never concurrently for one stream; everything else on its process's JavaScript thread.
// Nothing throws: a refusal is one diagnostic line and a false or empty result.
class SharedMemoryManager : public IFrameRecieveCallback {
 public:
  using SourcePtr = std::shared_ptr<SharedMemoryVideoFrameSource>;

  // Creates a main segment under fresh names.
  static std::shared_ptr<SharedMemoryManager> CreateSharedMemoryManager();
  // Opens the main segment of another process. There is a manager also when that fails; it then
  // finds no stream.
  static std::shared_ptr<SharedMemoryManager> CreateSharedMemoryManagerWithKey(
      const SharedMemoryKey& key);

  explicit SharedMemoryManager(const SharedMemoryInfo& info);
  // Unmaps the frame segments, then the main segment, and removes all their names.
  ~SharedMemoryManager() override = default;
  SharedMemoryManager(const SharedMemoryManager&) = delete;
  SharedMemoryManager& operator=(const SharedMemoryManager&) = delete;

  // Drops all segments and their names now, though the engine may hold this receiver for longer;
  // frames that it still delivers find no stream. Nothing else may be called after it.
  void close();

  // Creating side: copies the stream's frame into its frame segment.
  void NotifyFrameArrived(std::shared_ptr<QVXCommon::IVideoFrame> frame, unsigned int csrc,
                          const StreamKey& key) override;

  // The main segment's names.
  const SharedMemoryInfo& getSharedMemInfo() const { return allocator_->getSharedMemInfo(); }

  // Creating side: makes the stream's frame segment and lists it. Once that has failed for a
  // stream, it fails until disableSharedMemory.
  bool enableSharedMemory(const StreamKey& key);
  // Creating side: takes the stream's frame segment off the list and drops it. The stream's frames
  // should have stopped arriving.
  bool disableSharedMemory(const StreamKey& key);

  // Opening side: the source of a listed stream, opened at the first request and dropped at the
  // first one after the stream has left the list. Empty when there is none.
  SourcePtr getVideoFrameSource(const StreamKey& key);
  // Opening side: whether the stream has a source, listed or not.
  bool holdsVideoFrameSource(const StreamKey& key);
  // Opening side: forgets the stream's source.
  void removeVideoFrameSource(const StreamKey& key);

 private:
  // Creating side.
  void clearTable();
  bool createSource(const StreamKey& key, const SharedMemoryInfo& info);
  bool listSegment(const StreamKey& key, const SharedMemoryInfo& info);

  // Opening side.
  SourcePtr confirmVideoFrameSource(const StreamKey& key, const SourcePtr& source);
  SourcePtr openVideoFrameSource(const StreamKey& key);

  // One step on the map of sources each. A source that leaves the map is destroyed after the step.
  std::optional<SourcePtr> findSource(const StreamKey& key) EXCLUDES(sourcesMutex_);
  void storeSource(const StreamKey& key, SourcePtr source) EXCLUDES(sourcesMutex_);
  void eraseSource(const StreamKey& key) EXCLUDES(sourcesMutex_);

  // JavaScript thread.
  std::unique_ptr<SharedMemoryAllocator> allocator_;  // null once closed

  // Guards the map against the frame threads' look-ups. Held for one step on the map: no thread
  // waits for a segment, copies a frame or destroys a source while it holds it.
  base::Mutex sourcesMutex_;
  // A stream whose segment could not be made or opened has an empty pointer.
  std::map<StreamKey, SourcePtr> sources_ GUARDED_BY(sourcesMutex_);
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_SHARED_MEMORY_MANAGER_H_
