#include "addon/sharedmem/accepted_files.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace sharedmem {
namespace {

// Whether a file that was to be created existed before and is another user's, who could read it and
// cut it short: errno is then set.
bool isOfAnotherUser(const struct stat& status) {
  if (status.st_uid == geteuid()) return false;
  errno = EPERM;
  return true;
}

// Removes an object that could not be created completely. errno stays.
FileDescriptor withoutName(const std::string& name) {
  const int error = errno;
  shm_unlink(name.c_str());
  errno = error;
  return {};
}

// Whether a file under this name cannot be the semaphore that is wanted: errno is then set. The C
// library creates such files complete, and opens any file under the name without a check.
bool semaphoreFileIsRefused(const std::string& name, int flags) {
  const std::size_t start = name.find_first_not_of('/');
  if (start == std::string::npos) return false;
  const std::string path = "/dev/shm/sem." + name.substr(start);
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return false;
  if (status.st_size < static_cast<off_t>(sizeof(sem_t))) {
    errno = EINVAL;
    return true;
  }
  return (flags & O_CREAT) != 0 && isOfAnotherUser(status);
}

// The word of a semaphore that tells the C library whether processes share it. The library passes
// it to the kernel with every call, and ends the process when the kernel refuses it.
constexpr std::size_t kSharedAt = 8;
std::uint32_t sharedWord(const sem_t* semaphore) {
  std::uint32_t word = 0;
  std::memcpy(&word, reinterpret_cast<const std::uint8_t*>(semaphore) + kSharedAt, sizeof word);
  return word;
}

// Whether `semaphore` is one, as the library marks those that processes share; otherwise errno is
// set.
bool isSemaphore(const sem_t* semaphore) {
  static const std::uint32_t shared = [] {
    sem_t made = {};
    sem_init(&made, 1, 0);
    return sharedWord(&made);
  }();
  if (sharedWord(semaphore) == shared) return true;
  errno = EINVAL;
  return false;
}

}  // namespace

FileDescriptor openAcceptedObject(const std::string& name, int flags, mode_t mode) {
  FileDescriptor opened = FileDescriptor::openSharedMemory(name, flags, mode);
  if (!opened) return opened;
  const bool creates = (flags & O_CREAT) != 0;
  if (creates) {
    struct stat status = {};
    if (fstat(opened.get(), &status) != 0) return withoutName(name);
    if (isOfAnotherUser(status)) return {};
  }
  FileDescriptor moved = std::move(opened).aboveStandardDescriptors();
  return moved || !creates ? std::move(moved) : withoutName(name);
}

AcceptedSemaphore AcceptedSemaphore::open(const std::string& name, int flags, mode_t mode,
                                          unsigned int initialCount) {
  if (semaphoreFileIsRefused(name, flags)) return {};
  NamedSemaphore opened = NamedSemaphore::open(name, flags, mode, initialCount);
  if (!opened) return {};
  if (isSemaphore(opened.get())) return AcceptedSemaphore(std::move(opened));
  opened.reset();
  errno = EINVAL;
  return {};
}

bool AcceptedSemaphore::timedWait(const timespec& deadline) const {
  return isSemaphore(semaphore_.get()) && semaphore_.timedWait(deadline);
}

bool AcceptedSemaphore::post() const { return isSemaphore(semaphore_.get()) && semaphore_.post(); }

}  // namespace sharedmem
