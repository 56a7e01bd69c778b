#include "addon/sharedmem/posix_shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace sharedmem {
namespace {

// Whether what was to be created was there before and is another user's, who could look into it and
// cut it short: errno is then set.
bool isOfAnotherUser(const struct stat& status) {
  if (status.st_uid == geteuid()) return false;
  errno = EPERM;
  return true;
}

// What is left of an object that could not be created: nothing. errno stays.
FileDescriptor withoutName(const std::string& name) {
  const int error = errno;
  shm_unlink(name.c_str());
  errno = error;
  return {};
}

// Whether a file under this name cannot be the semaphore that is wanted: errno is then set. The C
// library creates such files complete, and opens whatever lies under the name without looking.
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

// The word of a semaphore that tells the C library whether processes share it. It goes to the
// kernel with every call, and the library ends the process when the kernel refuses it.
constexpr std::size_t kSharedAt = 8;
std::uint32_t sharedWord(const sem_t* semaphore) {
  std::uint32_t word = 0;
  std::memcpy(&word, reinterpret_cast<const std::uint8_t*>(semaphore) + kSharedAt, sizeof word);
  return word;
}

// Whether what lies there is a semaphore: as the library marks those that processes share.
bool isSemaphore(const sem_t* semaphore) {
  static const std::uint32_t shared = [] {
    sem_t made = {};
    sem_init(&made, 1, 0);
    return sharedWord(&made);
  }();
  return sharedWord(semaphore) == shared;
}

}  // namespace

FileDescriptor FileDescriptor::openSharedMemory(const std::string& name, int flags, mode_t mode) {
  FileDescriptor opened(shm_open(name.c_str(), flags, mode));
  if (!opened) return opened;
  const bool creates = (flags & O_CREAT) != 0;
  if (creates) {
    struct stat status = {};
    if (fstat(opened.get(), &status) != 0) return withoutName(name);
    if (isOfAnotherUser(status)) return {};
  }
  if (opened.get() > STDERR_FILENO) return opened;
  FileDescriptor moved(fcntl(opened.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  return moved || !creates ? std::move(moved) : withoutName(name);
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

void FileDescriptor::reset() {
  const int fd = std::exchange(fd_, -1);
  if (fd >= 0) close(fd);
}

std::optional<SharedMapping> SharedMapping::map(const FileDescriptor& object, std::size_t size) {
  struct stat status = {};
  if (fstat(object.get(), &status) != 0) return std::nullopt;
  if (status.st_size < static_cast<off_t>(size)) {
    errno = ENXIO;
    return std::nullopt;
  }
  void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
  if (data == MAP_FAILED) return std::nullopt;
  return SharedMapping(data, size);
}

SharedMapping& SharedMapping::operator=(SharedMapping&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

void SharedMapping::reset() {
  void* data = std::exchange(data_, nullptr);
  if (data != nullptr) munmap(data, size_);
}

NamedSemaphore NamedSemaphore::open(const std::string& name, int flags, mode_t mode,
                                    unsigned int initialCount) {
  if (semaphoreFileIsRefused(name, flags)) return {};
  sem_t* semaphore = sem_open(name.c_str(), flags, mode, initialCount);
  if (semaphore == SEM_FAILED) return {};
  NamedSemaphore opened(semaphore);
  if (isSemaphore(semaphore)) return opened;
  opened.reset();
  errno = EINVAL;
  return {};
}

bool NamedSemaphore::timedWait(const timespec& deadline) const {
  if (isSemaphore(semaphore_)) return sem_timedwait(semaphore_, &deadline) == 0;
  errno = EINVAL;
  return false;
}

bool NamedSemaphore::post() const {
  if (isSemaphore(semaphore_)) return sem_post(semaphore_) == 0;
  errno = EINVAL;
  return false;
}

NamedSemaphore& NamedSemaphore::operator=(NamedSemaphore&& other) noexcept {
  std::swap(semaphore_, other.semaphore_);
  return *this;
}

void NamedSemaphore::reset() {
  sem_t* semaphore = std::exchange(semaphore_, nullptr);
  if (semaphore != nullptr) sem_close(semaphore);
}

}  // namespace sharedmem
