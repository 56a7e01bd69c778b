// What names a shared-memory segment and its lock.

#ifndef ADDON_SHAREDMEM_SHARED_MEMORY_INFO_H_
#define ADDON_SHAREDMEM_SHARED_MEMORY_INFO_H_

#include <cstdint>
#include <string>

namespace sharedmem {

// One segment with its semaphore, as a process is about to create or to open it.
struct SharedMemoryInfo {
  std::string shmName;     // of the shared-memory object
  std::string semName;     // of the named semaphore
  std::uint32_t size = 0;  // bytes to map; the creating side makes the object this long
  bool create = false;     // true on the creating side, false on the opening side
  bool owner = false;      // goes with `create`; nobody consults it
};

// The pair of names that one process hands to another.
struct SharedMemoryKey {
  std::string shmName;
  std::string semName;
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_SHARED_MEMORY_INFO_H_
