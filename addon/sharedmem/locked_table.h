// The main segment's table of streams.

#ifndef ADDON_SHAREDMEM_LOCKED_TABLE_H_
#define ADDON_SHAREDMEM_LOCKED_TABLE_H_

#include "addon/sharedmem/shared_memory_allocator.h"
#include "addon/sharedmem/shared_memory_info.h"
#include "addon/sharedmem/shared_memory_layout.h"
#include "tesselclient/types.h"

namespace sharedmem {

// Whether `key` names a remote stream for which the table has no entry.
bool isRemoteOutsideTable(const StreamKey& key);

// Creating side: the entry names this segment from now on.
void setEntry(SharedStreamEntry& entry, const SharedMemoryKey& names);
// Creating side: the entry names no segment any more. Most bytes of the names stay.
void clearEntry(SharedStreamEntry& entry);

// Opening side: whether the entry names a segment.
bool isValid(const SharedStreamEntry& entry);
// Opening side: the names in the entry, each up to its NUL or the end of its field.
SharedMemoryKey namesIn(const SharedStreamEntry& entry);

// Holds the lock of a main segment for the length of a scope and gives access to its entries. Lives
// on the stack of one operation of a SharedMemoryManager; JavaScript thread.
class LockedTable {
 public:
  // Waits for the lock for at most 5 seconds.
  explicit LockedTable(SharedMemoryAllocator& allocator);
  ~LockedTable();
  LockedTable(const LockedTable&) = delete;
  LockedTable& operator=(const LockedTable&) = delete;

  bool locked() const { return locked_; }
  bool mapped() const { return entries_ != nullptr; }
  // Null for a stream without an entry, or when the table is not mapped.
  SharedStreamEntry* entryOf(const StreamKey& key) const;
  // Sets all bytes to 0. Only for a table that is mapped.
  void clear() const;

 private:
  SharedMemoryAllocator& allocator_;
  const bool locked_;
  SharedStreamEntry* entries_ = nullptr;
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_LOCKED_TABLE_H_
