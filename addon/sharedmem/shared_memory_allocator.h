// A shared-memory segment and the lock over it.

#ifndef ADDON_SHAREDMEM_SHARED_MEMORY_ALLOCATOR_H_
#define ADDON_SHAREDMEM_SHARED_MEMORY_ALLOCATOR_H_

#include <optional>

#include "addon/sharedmem/accepted_files.h"
#include "addon/sharedmem/names_at_exit.h"
#include "addon/sharedmem/posix_shared_memory.h"
#include "addon/sharedmem/shared_memory_info.h"

namespace sharedmem {

// One named shared-memory object, mapped for reading and writing, with one named semaphore that
// serves as a lock between processes over its contents (1 free, 0 held). One process creates the
// pair, another opens it by name. The user defines the contents.
//
// The creating side starts with the lock held, so that it can clear the contents before anyone
// reads them; its first unlockDataAccess() opens the segment to others. Whichever side is destroyed
// first removes both names: what is mapped stays usable, but can no longer be opened. A process
// that ends by exit() removes them, too.
//
// Every access is lockDataAccess(), getDataPtr(), read or write, unlockDataAccess(). Nothing
// throws: a failure is one diagnostic line and a false or null result, also when the pair could not
// be opened at all.
//
// Owned by one user, which may hand it from thread to thread but uses it from one at a time: the
// lock excludes other allocators, not other threads of the same one.
class SharedMemoryAllocator {
 public:
  explicit SharedMemoryAllocator(SharedMemoryInfo info);
  ~SharedMemoryAllocator();
  SharedMemoryAllocator(const SharedMemoryAllocator&) = delete;
  SharedMemoryAllocator& operator=(const SharedMemoryAllocator&) = delete;

  // Whether segment and semaphore are open. Never changes.
  bool initialised() const { return initialised_; }

  // Takes the lock, waiting at most 5 seconds. True at once when this object holds it already.
  bool lockDataAccess();
  // The info's `size` bytes, while this object holds the lock; null otherwise.
  void* getDataPtr();
  // Releases the lock. When that fails, this object still holds it.
  bool unlockDataAccess();

  const SharedMemoryInfo& getSharedMemInfo() const { return info_; }

 private:
  bool initialize();
  bool openObject();
  bool mapObject();
  bool openSemaphore();
  void uninitialize();

  const SharedMemoryInfo info_;
  FileDescriptor object_;
  SharedMapping mapping_;
  AcceptedSemaphore semaphore_;
  std::optional<NamesAtExit> namesAtExit_;
  bool initialised_ = false;
  bool locked_ = false;  // this object holds the semaphore
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_SHARED_MEMORY_ALLOCATOR_H_
