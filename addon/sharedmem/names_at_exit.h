// Names that must not outlive their process.

#ifndef ADDON_SHAREDMEM_NAMES_AT_EXIT_H_
#define ADDON_SHAREDMEM_NAMES_AT_EXIT_H_

#include <string>

namespace sharedmem {

// Removes the names of a segment and its semaphore when the process ends by exit() while this
// object lives. exit() destroys nothing that is on the heap, and it is how process.exit() and an
// error that nobody handled end a Node.js process, without any clean-up of its JavaScript
// environment.
//
// One for each open SharedMemoryAllocator. Any thread.
class NamesAtExit {
 public:
  NamesAtExit(std::string shmName, std::string semName);
  ~NamesAtExit();
  NamesAtExit(const NamesAtExit&) = delete;
  NamesAtExit& operator=(const NamesAtExit&) = delete;

  void remove() const;

 private:
  const std::string shmName_;
  const std::string semName_;
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_NAMES_AT_EXIT_H_
