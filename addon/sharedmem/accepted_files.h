// Which of the files in /dev/shm a segment is made of: whose they may be, and what a semaphore must
// look like. A failing call leaves its reason in errno.

#ifndef ADDON_SHAREDMEM_ACCEPTED_FILES_H_
#define ADDON_SHAREDMEM_ACCEPTED_FILES_H_

#include <sys/types.h>

#include <ctime>
#include <string>
#include <utility>

#include "addon/sharedmem/posix_shared_memory.h"

namespace sharedmem {

// As shm_open. With O_CREAT an object of another user is refused with EPERM, and no object is left
// when anything else fails. The descriptor is none of the standard ones, which are free when the
// application has closed them: its standard output would be written into the object.
FileDescriptor openAcceptedObject(const std::string& name, int flags, mode_t mode);

// A named semaphore that is checked before each use: the C library ends the process that waits on
// anything else. Move-only and empty by default, like what it owns.
class AcceptedSemaphore {
 public:
  // As sem_open; `mode` and `initialCount` count only when the semaphore is created. A file that is
  // too short for a semaphore, or holds something else, is refused with EINVAL: waiting on the one
  // raises SIGBUS, and on the other ends the process. With O_CREAT another user's is refused with
  // EPERM.
  static AcceptedSemaphore open(const std::string& name, int flags, mode_t mode,
                                unsigned int initialCount);

  AcceptedSemaphore() = default;

  explicit operator bool() const { return static_cast<bool>(semaphore_); }
  void reset() { semaphore_.reset(); }

  // As sem_timedwait and sem_post, true for 0. A semaphore that was overwritten with something else
  // is refused with EINVAL.
  bool timedWait(const timespec& deadline) const;
  bool post() const;

 private:
  explicit AcceptedSemaphore(NamedSemaphore semaphore) : semaphore_(std::move(semaphore)) {}

  NamedSemaphore semaphore_;
};

}  // namespace sharedmem

#endif  // ADDON_SHAREDMEM_ACCEPTED_FILES_H_
